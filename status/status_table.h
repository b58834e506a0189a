/* The table of statuses. make_status_table.py writes its source. */
#ifndef KIV_STATUS_STATUS_TABLE_H
#define KIV_STATUS_STATUS_TABLE_H

#include "kivsdu/status_text.h"

extern const KivStatusInfo kivStatusTable[]; /* in ascending order of the numbers */
extern const size_t kivStatusCount;

#endif
