#pragma once

#include "platform/CoreFoundation/src/propertylist/PropertyListBuilder.h"

// The property list in XML text. Throws as the builder does, and `PropertyListFault` for text that
// is not UTF-8, is not well formed, has anything but what property lists are made of, or numbers,
// dates or data that are none.
PropertyListValue ReadXMLPropertyList(std::string_view text, PropertyListBuilder& builder);
