/* The version of these headers. CMake writes this file from the project's version in
 * CMakeLists.txt; change it there.
 *
 * cpp/version.hpp reads the version of the library that a process has loaded. */
#ifndef KIVSDU_VERSION_H
#define KIVSDU_VERSION_H

#define KIV_VERSION_MAJOR 0
#define KIV_VERSION_MINOR 1
#define KIV_VERSION_PATCH 0
#define KIV_VERSION "0.1.0"

#endif
