#pragma once

/// Marks a function that a shared module of the host exports. Everything else in a module is
/// hidden (the build compiles with hidden visibility).
#define KVX_MODULE_API __attribute__((visibility("default")))
