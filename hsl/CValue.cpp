#include "hsl/CValue.h"

#include "hsl/record/RecordWriter.h"

namespace HSL {

int CValue::Serialize(CCircularBuffer* buffer) const {
    CRecordWriter(*buffer).PutValue(*this);
    return 0;
}

} // namespace HSL
