// The part of the CoreServices framework that this system uses, under the platform's own names.
#pragma once

#include <CoreServices/DriverServices.h>
#include <CoreServices/Multiprocessing.h>
#include <MacTypes.h>
