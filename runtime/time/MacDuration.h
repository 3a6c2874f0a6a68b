// Conversion of intervals into the form that the Multiprocessing Services calls take.
#pragma once

struct NyTime;

// Returns an interval as a Duration, a signed 32-bit number: a positive one counts milliseconds, a
// negative one counts microseconds, 0 means at once and 0x7FFFFFFF means for ever. Every infinite
// time becomes 0x7FFFFFFF.
//
// Intervals above 262143 s are given in milliseconds, all others in microseconds. So 250 ms become
// -250000. The arithmetic is that of 32-bit two's complement without a check. It is kept so for the
// callers that have always seen it: between about 2148 s and 262143 s the result wraps round and
// means nothing, and a negative interval gives a positive number, so that its microseconds are read
// as milliseconds.
//
// Any thread may call it; it neither blocks nor allocates.
long ConvertNyTimeToMacDuration(const NyTime& time);
