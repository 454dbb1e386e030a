#pragma once

/// Marks what the shared library exports. Classes are marked whole, so that their type information
/// and tables of virtual functions are one object across library borders.
#define ZUC_API __attribute__((visibility("default")))
