#pragma once
// Symbol export of the special-function library: everything is hidden by
// default; the public functions carry QVSPECIAL_API.
#define QVSPECIAL_API __attribute__((visibility("default")))
