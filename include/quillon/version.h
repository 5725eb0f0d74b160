// SPDX-License-Identifier: Apache-2.0

#pragma once

// The version of the library and of all that is built with it. A new major version breaks programs
// that were built with an older one.
#define QUILLON_VERSION "1.0.0"
