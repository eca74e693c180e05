// netpack_convert.h - one number of a package into a field of another type. Internal.
#ifndef ZEB2_NETPACK_CONVERT_H
#define ZEB2_NETPACK_CONVERT_H

#include "net_ds_desc.h"

namespace zeb::netpack {

// Both types are numeric (codes 0 to 27, arrays like their scalars); `from` and `to` hold one
// element of the wire size each. Between like types the bytes are copied as they are. Integers are
// assigned at the width of the target, by value into floating types. Floating values are truncated
// towards zero; those beyond the range of the target take its nearest limit, and NaN becomes 0.
void convert_value(NETDSD_field_type from_type, const char *from, NETDSD_field_type to_type,
                   char *to);

} // namespace zeb::netpack

#endif
