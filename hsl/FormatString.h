// From a format and the arguments that were logged with it to the text of a message.
//
// A format is walked here conversion by conversion, and each argument is printed by its own kind,
// so that a format that does not match its arguments still gives readable text:
//
//   | what does not match                 | what the message shows                              |
//   |-------------------------------------|-----------------------------------------------------|
//   | more arguments than conversions     | " (", the other arguments in the default forms of   |
//   |                                     | their kinds with ", " between them, ") "            |
//   | more conversions than arguments     | "[extra format arguments: ", the rest of the format |
//   |                                     | with "_" for every "%", " ]"                        |
//   | an id of -1, or one never given     | "<UNINITIALIZED FORMAT STRING ID USED>"             |
//   | a wide format                       | "<WIDE FORMAT STRING NOT SUPPORTED>"                |
//   | a format field of neither tag       | "<BAD FORMAT STRING>"                               |
//   | an argument of no kind              | "<BAD ARG> I'm horribly confused"                   |
//
// A piece of a format is one conversion with the text before it. Its text is cut at 65535 bytes,
// and so is each other part that is appended as a whole.
#pragma once

#include "hsl/format/Conversion.h"
#include "hsl/format/TextBuffer.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace HSL {

class CRecordReader;

// A piece of a format: the text from `mStart` on, and behind it, from `mSign` to `mEnd`, one
// conversion.
struct CFormatPiece {
    std::size_t mStart;
    std::size_t mSign;
    std::size_t mEnd;
    CConversion mConversion;
};

// The pieces that a format begins with; text without a conversion may follow the last.
struct CFormatPieces {
    CFormatPieces() = default;
    explicit CFormatPieces(std::string_view format) { Find(format); }

    // Finds the pieces of `format`, in place of those from before.
    void Find(std::string_view format);

    std::vector<CFormatPiece> mPieces;
    // Set if the search for a further piece meets an escaped per-cent sign, which it never passes.
    bool mIsEndless = false;
};

// A registered format, narrow or wide.
struct CFormatStringEntry {
    bool mIsNarrow;
    std::string mNarrow;
    std::wstring mWide;
    CFormatPieces mPieces{mNarrow};
};

// Reads the format and the arguments of records and makes text of them. The collection thread keeps
// one object for all records, so that the memory for their texts is reused:
//
//     CRecordReader reader(context.GetBuffer()); // behind a record's categories
//     messageText.Append(line, true, reader, formats);
class CMessageText {
public:
    // Reads a record's fields from the format on and appends the text that they make to `out`. With
    // `doFormat` false it reads them as well, and appends nothing but what stands for arguments of
    // no kind. `formats` are the registered ones, an id being an index.
    void Append(CTextBuffer& out, bool doFormat, CRecordReader& reader,
                const std::vector<CFormatStringEntry>& formats);

private:
    struct Format {
        std::string_view mText;
        const CFormatPieces* mPieces; // null: not yet found
    };

    Format ReadFormat(CRecordReader& reader, const std::vector<CFormatStringEntry>& formats);
    CRecordValue ReadValue(CRecordReader& reader, tValueKind kind);

    std::string mFormat;
    CFormatPieces mPieces; // of a format that is not registered
    std::string mNarrowArgument;
    std::wstring mWideArgument;
};

// Cuts the piece that begins at `start` of `out` and ends with it.
void CutPiece(CTextBuffer& out, std::size_t start);

} // namespace HSL
