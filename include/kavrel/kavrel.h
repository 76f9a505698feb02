/** @file
 * Everything that libkavrel-api exports to clients and watchers. */
#pragma once

#include <kavrel/app_api.h>
#include <kavrel/state_api.h>
