#pragma once

#include "hsl/LogContext.h"

namespace HSL {

// Indents what is logged through a context while the object lives, typically for a nested
// operation. The context's writer only; the context must outlive the object.
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
