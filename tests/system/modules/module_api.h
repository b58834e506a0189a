// How a module of the tests declares its entries.
#ifndef KIV_TESTS_MODULE_API_H
#define KIV_TESTS_MODULE_API_H

#ifdef _WIN32
#define MODULE_EXPORT __declspec(dllexport)
#define MODULE_IMPORT __declspec(dllimport)
#else
#define MODULE_EXPORT __attribute__((visibility("default")))
#define MODULE_IMPORT
#endif

#endif
