// SPDX-License-Identifier: Apache-2.0

#include "findings/refusal.h"

bool Quill::Refuse(Reason /*reason*/, const Evidence& /*evidence*/) { return false; }
