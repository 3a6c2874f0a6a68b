#pragma once

#include "platform/CoreFoundation/src/propertylist/PropertyListBuilder.h"

// The property list in bytes that begin with "bplist". Throws as the builder does, and
// `PropertyListFault` for whatever is not a binary property list of version 00: offsets, references
// and counts beyond the bytes, and values of types that we do not know.
PropertyListValue ReadBinaryPropertyList(std::string_view bytes, PropertyListBuilder& builder);
