// The link reader's core, with the output buffer and the frame limit
// chosen by the caller (the fuzz target tries other limits than the
// reader's).
#pragma once

#include <cstdint>

#include "common/imc_protocol/fcs.h"
#include "common/imc_protocol/imcprotocol.h"

// IMC_Link_Reader_Feed over a decoder that writes to out (room bytes) and
// accepts frames of at most max_len; st must have been reset to out.
int IMC_Link_Feed(status_s* st, uint8_t* out, uint32_t room, int32_t max_len, IMC_Stack_Handle_s* handle,
                  const uint8_t* data, uint32_t len);
