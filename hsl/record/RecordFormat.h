// The layout of a record in a context's ring. The fields follow one another without padding, and
// numbers are in the host's byte order:
//
//   | field          | bytes                                                                  |
//   |----------------|------------------------------------------------------------------------|
//   | marker         | 1: kRecordMarker                                                       |
//   | sequence       | 4, signed: unique and increasing over all contexts                     |
//   | seconds        | 4: the wall clock's at the log call, since 1970                        |
//   | microseconds   | 4: 0 to 999999                                                         |
//   | indent         | 1                                                                      |
//   | categories     | 1 + count: a count byte and the ids                                    |
//   | format         | 3: eFormatId and the id, 16 bits signed; or 3 + length: eFormatText,   |
//   |                | a 16-bit length and the text without terminator                        |
//   | argument count | 1: 0 to 10                                                             |
//   | arguments      | for each a kind byte and its payload, see CValue.h                     |
#pragma once

namespace HSL {

inline constexpr unsigned char kRecordMarker = 0;

// The first byte of the format field.
enum tFormatTag : unsigned char {
    eFormatText = 1,
    eFormatId = 3,
};

} // namespace HSL
