#pragma once

#include "hsl/LogContext.h"

namespace HSL {

// Indents what is logged through a context while the object lives, typically for a nested
// operation:
//
//     const CLogIndent indent(*context);
//     context->Log(cat, "one step of the operation"); // shows one level deeper
//
// Only the thread that logs through the context may use it, and the context must outlive the
// object.
class CLogIndent {
public:
    explicit CLogIndent(CLogContext& context) : mContext(context) {
        mContext.SetIndent(mContext.GetIndent() + 1);
    }
    ~CLogIndent() { mContext.SetIndent(mContext.GetIndent() - 1); }
    CLogIndent(const CLogIndent&) = delete;
    CLogIndent& operator=(const CLogIndent&) = delete;

private:
    CLogContext& mContext;
};

} // namespace HSL
