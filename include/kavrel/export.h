/** @file
 * What the library exports; everything else is hidden. */
#pragma once

/// Marks what the library exports.
#define KAVREL_EXPORT __attribute__((visibility("default")))
