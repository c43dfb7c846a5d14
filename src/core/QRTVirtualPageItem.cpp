#include "QRTVirtualPageItem.h"

// The header gives the value, so that comparisons with it fold; this is the one exported object.
const unsigned long long QRTVirtualPageItem::kInvalidOffset;
