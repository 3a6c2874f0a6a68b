// The headers as a plug-in written in C uses them.
#include <CoreFoundation/CoreFoundation.h>

#include <string.h>

// 0, or the number of the first step that went wrong.
int CFTypesAreUsableFromC(void) {
    const void* values[2];
    char text[32];
    CFStringRef name =
        CFStringCreateWithFormat(kCFAllocatorDefault, NULL, CFSTR("Port %d of %@"), 3, CFSTR("8"));
    if (!CFStringGetCString(name, text, sizeof(text), kCFStringEncodingMacRoman) ||
        strcmp(text, "Port 3 of 8") != 0) {
        return 1;
    }
    values[0] = name;
    values[1] = kCFBooleanTrue;
    CFArrayRef array = CFArrayCreate(NULL, values, 2, &kCFTypeArrayCallBacks);
    CFRelease(name);
    if (CFArrayGetCount(array) != 2 || CFArrayGetValueAtIndex(array, 1) != kCFBooleanTrue) {
        return 2;
    }
    if (!CFEqual(CFArrayGetValueAtIndex(array, 0), CFSTR("Port 3 of 8"))) {
        return 3;
    }
    CFRelease(array);
    return 0;
}
