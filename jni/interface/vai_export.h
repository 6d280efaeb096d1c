#pragma once

// Marks the library's external interface; everything else is built with hidden visibility.
#define VAI_EXPORT __attribute__((visibility("default")))
