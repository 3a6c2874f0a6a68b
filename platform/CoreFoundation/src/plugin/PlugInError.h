// Why a bundle or plug-in call failed, kept for the calling thread.
#pragma once

#include <string>

// Line breaks are replaced, so that the text is always one line. Returns false, for `return`.
bool SetPlugInError(const std::string& text);

// Empty when no call has failed on this thread.
const std::string& LastPlugInError();
