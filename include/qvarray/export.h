#pragma once
// Symbol export of qvarray: everything is hidden by default; the public API
// carries QVARRAY_API.
#define QVARRAY_API __attribute__((visibility("default")))
