// Test seam of the board set-up.
#pragma once

// Makes set-up step `step` (1..17) fail as if its device could not be set up;
// 0 makes every step run normally again.
void board_tovik_fail_step(int step);
