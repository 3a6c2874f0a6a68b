#include "platform/CoreFoundation/src/propertylist/PropertyListFile.h"

#include "platform/CoreFoundation/src/propertylist/PropertyListCheck.h"
#include "platform/CoreFoundation/src/propertylist/PropertyListForms.h"

CFPropertyListRef ParsePropertyList(std::string_view bytes, bool mutableContainers,
                                    CFPropertyListFormat& format, PropertyListFailure& failure) {
    if (bytes.size() > kPropertyListMaximumSize) {
        failure = {kCFPropertyListReadStreamError, "too large"};
        return nullptr;
    }
    constexpr std::string_view kMark = "\xEF\xBB\xBF";
    PropertyListBuilder builder(mutableContainers);
    try {
        if (bytes.substr(0, 6) == "bplist") {
            format = kCFPropertyListBinaryFormat_v1_0;
            return ReadBinaryPropertyList(bytes, builder).Release();
        }
        if (bytes.substr(0, kMark.size()) == kMark) {
            bytes.remove_prefix(kMark.size());
        }
        format = kCFPropertyListXMLFormat_v1_0;
        return ReadXMLPropertyList(bytes, builder).Release();
    } catch (const PropertyListFault& fault) {
        failure = {kCFPropertyListReadCorruptError, fault.text};
        return nullptr;
    }
}

bool WritePropertyList(CFPropertyListRef propertyList, CFPropertyListFormat format,
                       std::string& bytes, PropertyListFailure& failure) {
    try {
        CheckPropertyList(propertyList);
        if (format == kCFPropertyListBinaryFormat_v1_0) {
            bytes = WriteBinaryPropertyList(propertyList);
        } else if (format == kCFPropertyListXMLFormat_v1_0) {
            bytes = WriteXMLPropertyList(propertyList);
        } else {
            throw PropertyListFault{"an unknown format"};
        }
        return true;
    } catch (const PropertyListFault& fault) {
        failure = {kCFPropertyListWriteStreamError, fault.text};
        return false;
    }
}
