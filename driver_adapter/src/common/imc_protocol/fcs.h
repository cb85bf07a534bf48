// Framing of the IMC link. A frame carries one message of n bytes:
//   0x00, 0x7E (start flag), 0x00 (marker), n (2 bytes, high first),
//   the message, the CRC of the message (2 bytes, high first);
// every byte after the marker is escaped (0x7E -> 0x7D 0x5E, 0x7D -> 0x7D 0x5D).
// There is no closing flag.
#pragma once

#include <cstdint>

inline constexpr uint8_t IMC_FRAME_LEAD_IN = 0x00;
inline constexpr uint8_t IMC_FRAME_FLAG = 0x7E;
inline constexpr uint8_t IMC_FRAME_MARKER = 0x00;
inline constexpr uint8_t IMC_FRAME_ESCAPE = 0x7D;
inline constexpr uint8_t IMC_FRAME_ESCAPE_XOR = 0x20;
// Bytes of an unescaped frame besides the message.
inline constexpr uint32_t IMC_FRAME_OVERHEAD = 7;
// Bytes the decoder writes besides the message: the marker and the length.
inline constexpr uint32_t IMC_DECODE_OVERHEAD = 3;

// Builds the frame of the n-byte message in out. Returns its length, or 0
// when it does not fit in out_size (or n does not fit the 16-bit length,
// or an argument is missing).
uint32_t IMC_Encode_Frame(uint32_t n, const uint8_t* message, uint8_t* out, uint32_t out_size);

// Decoder states (decode_state). Stops at the end of an input piece keep the
// state to go on in; 8 and above are final until the caller resets.
enum imc_decode_state : uint16_t {
    DECODE_Hunting = 0,
    DECODE_Marker = 2,
    DECODE_LengthHigh = 3,
    DECODE_LengthLow = 4,
    DECODE_Message = 5,
    DECODE_CrcHigh = 6,
    DECODE_CrcLow = 7,
    DECODE_Done = 8,
    DECODE_BadCrc = 10,
    DECODE_BadMarker = 11,
    DECODE_BadLength = 13,
};

// status_bits: an escape byte was the last byte of the previous piece.
inline constexpr uint8_t IMC_STATUS_ESCAPE_PENDING = 0x01;

// One link's decoder, kept between calls so that a frame may arrive in
// pieces of any size.
struct status_s {
    uint16_t decode_state;
    int32_t length;  // frame length (message bytes) being read
    uint16_t read_crc;
    uint16_t computed_crc;
    uint8_t status_bits;
    int32_t length_ctr;  // message bytes still to come
    uint8_t* p_start;    // the message in the output
    uint8_t* p_out;      // next output byte
    const uint8_t* p_in;  // input left
    int32_t input_length;  // bytes left of the input
    // End of the output buffer: nothing is written at or beyond it, whatever
    // the frame claims.
    uint8_t* p_out_end;
};

// Points the decoder at an empty output buffer of out_size bytes and sets it
// hunting for a start flag; also how a caller resets it after a frame or an
// error.
void IMC_Decode_Reset(status_s* status, uint8_t* out, uint32_t out_size);

// Decodes len bytes of input into the output kept in status. Returns:
//   length + 3, the bytes written (marker, length, message), when a whole
//     frame with a matching CRC has been read (state 8; the message is at
//     p_start, its length in length);
//   0 when the input held no start flag;
//   -12 for bad arguments;
//   otherwise the negated state: input used up in states 2..7 (call again
//     with the next piece), or a final error (10 CRC, 11 marker, 13 length).
// In every case p_in and input_length describe the input not used yet.
int IMC_Decode_Frame(status_s* status, int32_t len, const uint8_t* input, int32_t max_len);
