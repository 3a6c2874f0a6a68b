// Intervals in the form that the Multiprocessing Services calls take.
#pragma once

struct NyTime;

// The Duration of an interval, a signed 32-bit number: positive counts milliseconds, negative
// counts microseconds, 0 is at once and 0x7FFFFFFF (any infinite time) is forever.
//
// Intervals above 262143 s are given in milliseconds, all others in microseconds. The arithmetic is
// that of 32-bit two's complement without a check, on purpose: between about 2148 s and 262143 s
// the result wraps round and means nothing. A negative interval gives a positive number, that is,
// its microseconds read as milliseconds.
long ConvertNyTimeToMacDuration(const NyTime& time);
