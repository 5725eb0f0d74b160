// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace tarnsim {

// The extended attribute in which the simulated kernel keeps a file's label.
inline constexpr char kLabelAttribute[] = "user.tarn.label";

}  // namespace tarnsim
