// Adapter start-up: registers the driver classes and sets up the board's
// devices, once per process.
#pragma once

#include "vr_os.h"

// The board is fixed at build time by the DrvBoardSetup linked in; the
// identifier is accepted and not looked at.
using board_id_t = int;

inline constexpr const char* SEM_NAME_EC_INIT = "ec_initial_name_sem";

// 1 when the adapter is (or already was) fully set up, -1 when the named
// semaphore cannot be opened, else DrvBoardSetup's failing result (0). A
// failed set-up is repeated by the next call.
int InitDriverAdapter(board_id_t id);

// The named semaphore opened by InitDriverAdapter, null before.
VR_NAMED_SEM ec_init_sem();

// Board-specific set-up (one per board, chosen at link time): 1 on success,
// else 0.
int DrvBoardSetup();
