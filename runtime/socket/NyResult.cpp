#include "runtime/socket/NyResult.h"

int OSToNyResult(int error) {
    switch (error) {
    case 0:
        return kNyOK;
    case 1:
        return 15;
    case 4:
        return 16;
    case 5:
        return 17;
    case 6:
        return 18;
    case 9:
        return 19;
    case 11:
        return 20;
    case 12:
        return 21;
    case 13:
        return 22;
    case 14:
        return 23;
    case 22:
        return 24;
    case 23:
        return 25;
    case 24:
        return 26;
    case 25:
        return 27;
    case 32:
        return 28;
    case 35:
        return 29;
    case 36:
        return 30;
    case 37:
        return 31;
    case 64:
        return 56;
    case 65:
        return 57;
    case 77:
        return 58;
    case 78:
        return 59;
    case 89:
        return 60;
    case 91:
        return 61;
    // No error has the result 62.
    case 94:
        return 63;
    case 95:
        return 64;
    case 96:
        return 65;
    case 98:
        return 66;
    case 99:
        return 67;
    case 100:
        return 68;
    case 101:
        return 69;
    default:
        return error >= 38 && error <= 61 ? error - 6 : kNyUnknownError;
    }
}
