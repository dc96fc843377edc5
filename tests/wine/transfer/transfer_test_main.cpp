// The transfer tests' main: a COM apartment for the pages and Download.dll, and standard output in
// binary so GoogleTest's lines reach ctest without the C library's CR LF.
#include "platform/win/handles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>

int main(int argc, char** argv) {
    _setmode(_fileno(stdout), _O_BINARY);
    corvid::win::ComApartment apartment;
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
