#pragma once

// A build type that switches assertions off would hide the function that reports them.
#undef NDEBUG
#include <cassert>

/// Ends the process when the traffic-control engine is used wrongly. Unlike the library's own
/// macro it stays on in every build.
#define TC_ASSERT(condition)    \
  (static_cast<bool>(condition) \
       ? static_cast<void>(0)   \
       : __assert_fail(#condition, "kavo-tc-htb", __LINE__, static_cast<const char*>(__func__)))
