// No test: the program of tests/support/CMakeLists.txt for which the headers are compiled.
