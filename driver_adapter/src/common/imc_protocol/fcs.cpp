#include "common/imc_protocol/fcs.h"

#include "common/imc_protocol/crc.h"

namespace {

// Longest message a frame can carry: the receiving side reads the length as
// a signed 16-bit value and refuses a negative one.
constexpr uint32_t IMC_FRAME_MESSAGE_MAX = 0x7FFF;

constexpr int DECODE_BAD_ARGUMENTS = -12;

int stop(status_s& st, uint16_t state)
{
    st.decode_state = state;
    return -static_cast<int>(state);
}

// The next unescaped byte of the input; false when the input is used up. An
// escape byte that ends a piece is remembered, and the next piece's first
// byte is unescaped with it.
bool next_byte(status_s& st, uint8_t& out)
{
    while (st.input_length > 0) {
        const uint8_t b = *st.p_in++;
        --st.input_length;
        if ((st.status_bits & IMC_STATUS_ESCAPE_PENDING) != 0) {
            st.status_bits = static_cast<uint8_t>(st.status_bits & ~IMC_STATUS_ESCAPE_PENDING);
            out = static_cast<uint8_t>(b ^ IMC_FRAME_ESCAPE_XOR);
            return true;
        }
        if (b == IMC_FRAME_ESCAPE) {
            st.status_bits = static_cast<uint8_t>(st.status_bits | IMC_STATUS_ESCAPE_PENDING);
            continue;
        }
        out = b;
        return true;
    }
    return false;
}

bool put(status_s& st, uint8_t b)
{
    if (st.p_out >= st.p_out_end)
        return false;
    *st.p_out++ = b;
    return true;
}

}  // namespace

uint32_t IMC_Encode_Frame(uint32_t n, const uint8_t* message, uint8_t* out, uint32_t out_size)
{
    if (out == nullptr || (message == nullptr && n > 0) || n > IMC_FRAME_MESSAGE_MAX)
        return 0;
    uint32_t pos = 0;
    const auto raw = [&](uint8_t b) {
        if (pos >= out_size)
            return false;
        out[pos++] = b;
        return true;
    };
    const auto escaped = [&](uint32_t v) {
        const auto b = static_cast<uint8_t>(v);
        if (b == IMC_FRAME_FLAG || b == IMC_FRAME_ESCAPE)
            return raw(IMC_FRAME_ESCAPE) && raw(static_cast<uint8_t>(b ^ IMC_FRAME_ESCAPE_XOR));
        return raw(b);
    };

    bool ok = raw(IMC_FRAME_LEAD_IN) && raw(IMC_FRAME_FLAG) && raw(IMC_FRAME_MARKER) &&
              escaped(n >> 8) && escaped(n);
    for (uint32_t i = 0; ok && i < n; ++i)
        ok = escaped(message[i]);
    const uint16_t crc = CalcWordCRC(message, n);
    ok = ok && escaped(crc >> 8u) && escaped(crc);
    return ok ? pos : 0;
}

void IMC_Decode_Reset(status_s* status, uint8_t* out, uint32_t out_size)
{
    if (status == nullptr)
        return;
    *status = {};
    status->p_out = out;
    status->p_start = out;
    status->p_out_end = out == nullptr ? nullptr : out + out_size;
}

int IMC_Decode_Frame(status_s* status, int32_t len, const uint8_t* input, int32_t max_len)
{
    if (status == nullptr || len < 0 || (input == nullptr && len > 0) || status->p_out == nullptr ||
        status->p_out_end == nullptr)
        return DECODE_BAD_ARGUMENTS;
    status_s& st = *status;
    st.p_in = input;
    st.input_length = len;
    uint8_t b = 0;

    switch (st.decode_state) {
    case DECODE_Hunting:
        do {
            if (st.input_length == 0)
                return 0;
            b = *st.p_in++;
            --st.input_length;
        } while (b != IMC_FRAME_FLAG);
        st.status_bits = 0;
        [[fallthrough]];
    case DECODE_Marker:
        if (st.input_length == 0)
            return stop(st, DECODE_Marker);
        // A wrong marker is left in the input: when it is a start flag, the
        // hunt after the reset begins a frame with it.
        if (*st.p_in != IMC_FRAME_MARKER)
            return stop(st, DECODE_BadMarker);
        ++st.p_in;
        --st.input_length;
        if (!put(st, IMC_FRAME_MARKER))
            return stop(st, DECODE_BadLength);
        [[fallthrough]];
    case DECODE_LengthHigh:
        if (!next_byte(st, b))
            return stop(st, DECODE_LengthHigh);
        if (!put(st, b))
            return stop(st, DECODE_BadLength);
        st.length = b << 8;
        [[fallthrough]];
    case DECODE_LengthLow: {
        if (!next_byte(st, b))
            return stop(st, DECODE_LengthLow);
        if (!put(st, b))
            return stop(st, DECODE_BadLength);
        const int32_t raw = st.length | b;
        // Besides max_len and the sign, the length must fit the rest of the
        // output buffer: the frame is refused as too long rather than written
        // beyond it.
        if (raw > 0x7FFF || raw > max_len || raw > st.p_out_end - st.p_out)
            return stop(st, DECODE_BadLength);
        st.length = raw;
        st.length_ctr = raw;
        st.p_start = st.p_out;
        [[fallthrough]];
    }
    case DECODE_Message:
        while (st.length_ctr > 0) {
            if (!next_byte(st, b))
                return stop(st, DECODE_Message);
            if (!put(st, b))
                return stop(st, DECODE_BadLength);
            --st.length_ctr;
        }
        [[fallthrough]];
    case DECODE_CrcHigh:
        if (!next_byte(st, b))
            return stop(st, DECODE_CrcHigh);
        st.read_crc = static_cast<uint16_t>(b << 8);
        [[fallthrough]];
    case DECODE_CrcLow:
        if (!next_byte(st, b))
            return stop(st, DECODE_CrcLow);
        st.read_crc = static_cast<uint16_t>(st.read_crc | b);
        st.computed_crc = CalcWordCRC(st.p_start, static_cast<uint32_t>(st.length));
        if (st.read_crc != st.computed_crc)
            return stop(st, DECODE_BadCrc);
        st.decode_state = DECODE_Done;
        return st.length + static_cast<int>(IMC_DECODE_OVERHEAD);
    default:
        // Final states (and any the decoder never sets) stay until a reset.
        return -static_cast<int>(st.decode_state);
    }
}
