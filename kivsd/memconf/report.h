// The findings of an examination, as text and as JSON.
#ifndef KIVSD_MEMCONF_REPORT_H
#define KIVSD_MEMCONF_REPORT_H

#include <cstdio>

#include "json_forward.h"
#include "memconf/check.h"

namespace kivsd {

void PrintFindings(const Examination& result, std::FILE* stream);
Json JsonOfFindings(const Examination& result);

}  // namespace kivsd

#endif
