#pragma once
// Symbol export of the companion utility library: everything is hidden by
// default; public classes and functions carry QVUTIL_API.
#define QVUTIL_API __attribute__((visibility("default")))
