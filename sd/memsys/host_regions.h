// Memory that the host takes elsewhere and adds to the totals.
#ifndef KIV_MEMSYS_HOST_REGIONS_H
#define KIV_MEMSYS_HOST_REGIONS_H

namespace kiv {

// Empties the table of regions, without freeing their records.
void ForgetAlignedRegions();

}  // namespace kiv

#endif
