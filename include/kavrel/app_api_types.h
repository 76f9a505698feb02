/** @file
 * What the headers of the C command API share. */
#pragma once

/// One connection to a viewer; opaque. Made by kavrel_api_create(), owned by its caller until
/// kavrel_api_destroy().
typedef void* kavrel_api_h;
