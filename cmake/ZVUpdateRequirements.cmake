# The oldest versions that have what the code calls for, said here once; docs/packaging.md names those
# with which it is built and tested. CMake's own stands in CMakeLists.txt, where CMake wants it.
set(ZVUPDATE_QT_MINIMUM 6.4)
set(ZVUPDATE_CURL_MINIMUM 7.87)
set(ZVUPDATE_OPENSSL_MINIMUM 1.1)
set(ZVUPDATE_LIBARCHIVE_MINIMUM 3.6)
set(ZVUPDATE_GNU_MINIMUM 12)
set(ZVUPDATE_Clang_MINIMUM 14)

set(minimum ${ZVUPDATE_${CMAKE_CXX_COMPILER_ID}_MINIMUM})
if(minimum AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS minimum)
    message(FATAL_ERROR "ZVUpdate needs ${CMAKE_CXX_COMPILER_ID} ${minimum}, and the compiler "
        "${CMAKE_CXX_COMPILER} is of version ${CMAKE_CXX_COMPILER_VERSION}. Choose another with "
        "-DCMAKE_CXX_COMPILER=...")
endif()
