// SPDX-License-Identifier: Apache-2.0

// Loads the tool's libraries and ends. The rest of the tool's time is its own work.
int main() { return 0; }
