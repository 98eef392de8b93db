#pragma once

/// Marks a name as part of the library's binary interface. Everything else is built with hidden visibility.
#define TAV_EXPORT __attribute__((visibility("default")))
