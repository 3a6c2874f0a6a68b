// The two forms that a property list has as bytes: XML text and the binary format.
//
// The readers throw as the builder does. They throw a PropertyListFault for XML that is not UTF-8
// or not well formed, for anything but what property lists are made of, for numbers, dates and data
// that are none, and for binary offsets, references and counts beyond the bytes.
//
// The writers take a property list that has passed `CheckPropertyList`, and throw a
// PropertyListFault if the bytes are too many.
#pragma once

#include "platform/CoreFoundation/src/propertylist/PropertyListBuilder.h"

#include <string>

PropertyListValue ReadXMLPropertyList(std::string_view text, PropertyListBuilder& builder);
// Writes one value a line, indented by levels.
std::string WriteXMLPropertyList(CFPropertyListRef propertyList);

// Reads bytes that begin with "bplist", of version 00.
PropertyListValue ReadBinaryPropertyList(std::string_view bytes, PropertyListBuilder& builder);
// Writes equal strings and numbers once.
std::string WriteBinaryPropertyList(CFPropertyListRef propertyList);
