#pragma once
// Symbol export of the special-function library: everything is hidden by
// default; the public functions carry QVSF_API.
#define QVSF_API __attribute__((visibility("default")))
