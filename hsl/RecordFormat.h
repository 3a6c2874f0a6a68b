// The layout of a record in a context's ring, one field after another without padding, numbers in
// the host's byte order:
//
//   | field          | bytes                                                                  |
//   |----------------|------------------------------------------------------------------------|
//   | marker         | 1: kRecordMarker                                                       |
//   | sequence       | 4, signed: unique and increasing over all contexts                     |
//   | seconds        | 4: wall clock, since 1970                                              |
//   | microseconds   | 4: 0 to 999999                                                         |
//   | indent         | 1                                                                      |
//   | categories     | 1 + count: a count byte and the ids                                    |
//   | format         | 3: kFormatID and the id, 16 bits signed; or 3 + length: kFormatText,   |
//   |                | a 16-bit length and the text without terminator                        |
//   | argument count | 1: 0 to 10                                                             |
//   | arguments      | for each, a kind byte and its payload, see CValue.h                    |
#pragma once

namespace HSL {

inline constexpr unsigned char kRecordMarker = 0;
inline constexpr unsigned char kFormatText = 1; // eFormatText
inline constexpr unsigned char kFormatID = 3;   // eFormatId

} // namespace HSL
