// SPDX-License-Identifier: Apache-2.0

#pragma once

// The version of the library, the tool and the simulator. A program that was built
// with an older major version must be built again.
#define QUILLON_VERSION "1.0.0"
