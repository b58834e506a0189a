#ifndef KIV_MSVC_ASSERT_H
#define KIV_MSVC_ASSERT_H

// assert is empty in the builds that this check compiles.
#define assert(condition) ((void)0)

#endif
