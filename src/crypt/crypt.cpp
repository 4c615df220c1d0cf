// zp::Crypt: protected texts, hex/base64 codecs and the SPS/PPS split of H.264 extradata.
#include "crypt/crypt.h"

#include <cstring>

#include "crypt/header_rewriter.h"

namespace zp {

namespace {

const char kMarker[] = "ZPX1~";
const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const char kHexDigits[] = "0123456789abcdef";

// Key material of the protection stream. Changing it invalidates every generated header.
constexpr uint32_t kKey = 0x6b1d52e9u;
constexpr uint16_t kNonceMask = 0xc35au;

uint16_t text_hash(const std::string& text) {
    uint32_t h = 2166136261u;  // FNV-1a, folded to 16 bits
    for (unsigned char c : text) {
        h ^= c;
        h *= 16777619u;
    }
    return static_cast<uint16_t>((h >> 16) ^ (h & 0xffffu));
}

// xorshift32 keyed by the nonce and the length: equal prefixes of different texts differ.
class KeyStream {
  public:
    KeyStream(uint16_t nonce, size_t length)
        : state_(kKey ^ (nonce * 0x9e3779b1u) ^ static_cast<uint32_t>(length * 0x85ebca6bu)) {
        if (state_ == 0) state_ = kKey;
    }
    uint16_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return static_cast<uint16_t>(state_ >> 16);
    }

  private:
    uint32_t state_;
};

uint16_t rotl16(uint16_t v, int n) {
    return static_cast<uint16_t>((v << n) | (v >> (16 - n)));
}

int base64_value(unsigned char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

int hex_value(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::vector<uint16_t> units_from_le(const std::vector<uint8_t>& bytes) {
    std::vector<uint16_t> units(bytes.size() / 2);
    for (size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<uint16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return units;
}

// Annex B: NAL units behind 00 00 01 start codes (a 4-byte code is the 3-byte one after a
// zero, which is trimmed from the unit before it).
void split_annex_b(const uint8_t* data, size_t size, std::vector<uint8_t>* sps,
                   std::vector<uint8_t>* pps, bool* have_sps, bool* have_pps) {
    size_t i = 0;
    size_t start = size;  // start of the current unit's payload; size = none yet
    auto finish = [&](size_t end) {
        while (end > start && data[end - 1] == 0) --end;
        if (end <= start) return;
        int type = data[start] & 0x1f;
        if (type == 7 && !*have_sps) {
            sps->assign(data + start, data + end);
            *have_sps = true;
        } else if (type == 8 && !*have_pps) {
            pps->assign(data + start, data + end);
            *have_pps = true;
        }
    };
    while (i + 3 <= size) {
        if (data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) {
            if (start < size) finish(i);
            i += 3;
            start = i;
        } else {
            ++i;
        }
    }
    if (start < size) finish(size);
}

// AVC decoder configuration record: 5 header bytes, SPS count (low 5 bits) and length-prefixed
// units, PPS count and length-prefixed units.
bool split_avcc(const uint8_t* data, size_t size, std::vector<uint8_t>* sps,
                std::vector<uint8_t>* pps) {
    if (size < 7) return false;
    size_t p = 5;
    for (int list = 0; list < 2; ++list) {
        if (p >= size) return false;
        int count = list == 0 ? (data[p] & 0x1f) : data[p];
        ++p;
        if (count == 0) return false;
        for (int n = 0; n < count; ++n) {
            if (p + 2 > size) return false;
            size_t len = (static_cast<size_t>(data[p]) << 8) | data[p + 1];
            p += 2;
            if (len == 0 || p + len > size) return false;
            if (n == 0) (list == 0 ? sps : pps)->assign(data + p, data + p + len);
            p += len;
        }
    }
    return true;
}

}  // namespace

Crypt* Crypt::instance() {
    static Crypt crypt;
    return &crypt;
}

Crypt::Crypt(Admin* owner) : Abstract_Crypt(owner) {}

Crypt::~Crypt() = default;

const char* Crypt::text_marker() {
    return kMarker;
}

std::vector<uint16_t> Crypt::protect(const std::string& clear) {
    // Unit 0 carries the nonce (the text's hash, so a header rewrites to the same arrays);
    // each byte is doubled into a unit so that restoring can tell foreign data from ours.
    std::vector<uint16_t> units;
    units.reserve(clear.size() + 1);
    const uint16_t nonce = text_hash(clear);
    units.push_back(static_cast<uint16_t>(nonce ^ kNonceMask));
    KeyStream keys(nonce, clear.size());
    for (unsigned char c : clear) {
        uint16_t plain = static_cast<uint16_t>(c * 257u);
        units.push_back(static_cast<uint16_t>(plain ^ keys.next() ^ rotl16(units.back(), 3)));
    }
    return units;
}

std::string Crypt::decrypt(const uint16_t* units, size_t count) {
    if (!units || count == 0) return std::string();
    const uint16_t nonce = static_cast<uint16_t>(units[0] ^ kNonceMask);
    KeyStream keys(nonce, count - 1);
    std::string clear;
    clear.reserve(count - 1);
    for (size_t i = 1; i < count; ++i) {
        uint16_t plain = static_cast<uint16_t>(units[i] ^ keys.next() ^ rotl16(units[i - 1], 3));
        if ((plain >> 8) != (plain & 0xff)) return std::string();
        clear.push_back(static_cast<char>(plain & 0xff));
    }
    if (text_hash(clear) != nonce) return std::string();
    return clear;
}

std::string Crypt::hex_decrypt(const char* hex) {
    std::vector<uint8_t> bytes;
    if (!hex_decode(hex, &bytes) || bytes.size() % 2 != 0) return std::string();
    std::vector<uint16_t> units = units_from_le(bytes);
    return decrypt(units.data(), units.size());
}

std::string Crypt::protect_text(const std::string& clear) {
    std::vector<uint16_t> units = protect(clear);
    std::vector<uint8_t> bytes;
    bytes.reserve(units.size() * 2);
    for (uint16_t u : units) {
        bytes.push_back(static_cast<uint8_t>(u & 0xff));
        bytes.push_back(static_cast<uint8_t>(u >> 8));
    }
    return kMarker + encode_bytes(bytes.data(), bytes.size());
}

std::string Crypt::restore_text(const std::string& text) {
    const size_t marker_len = sizeof(kMarker) - 1;
    if (text.compare(0, marker_len, kMarker) != 0) return text;
    std::vector<uint8_t> bytes;
    if (!decode_text(text.c_str() + marker_len, &bytes) || bytes.size() % 2 != 0)
        return std::string();
    std::vector<uint16_t> units = units_from_le(bytes);
    return decrypt(units.data(), units.size());
}

std::string Crypt::hex_encode(const uint8_t* data, size_t size) {
    std::string out;
    out.reserve(size * 2);
    for (size_t i = 0; i < size; ++i) {
        out.push_back(kHexDigits[data[i] >> 4]);
        out.push_back(kHexDigits[data[i] & 0x0f]);
    }
    return out;
}

bool Crypt::hex_decode(const char* text, std::vector<uint8_t>* bytes) {
    if (!text || !bytes) return false;
    size_t len = strlen(text);
    if (len % 2 != 0) return false;
    std::vector<uint8_t> out(len / 2);
    for (size_t i = 0; i < out.size(); ++i) {
        int hi = hex_value(static_cast<unsigned char>(text[2 * i]));
        int lo = hex_value(static_cast<unsigned char>(text[2 * i + 1]));
        if (hi < 0 || lo < 0) return false;
        out[i] = static_cast<uint8_t>(hi << 4 | lo);
    }
    bytes->swap(out);
    return true;
}

std::string Crypt::encode_bytes(const uint8_t* data, size_t size) {
    std::string out;
    out.reserve((size + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 3 <= size; i += 3) {
        uint32_t v = (data[i] << 16) | (data[i + 1] << 8) | data[i + 2];
        out.push_back(kBase64[v >> 18]);
        out.push_back(kBase64[(v >> 12) & 63]);
        out.push_back(kBase64[(v >> 6) & 63]);
        out.push_back(kBase64[v & 63]);
    }
    if (size - i == 1) {
        uint32_t v = data[i] << 16;
        out.push_back(kBase64[v >> 18]);
        out.push_back(kBase64[(v >> 12) & 63]);
        out.append("==");
    } else if (size - i == 2) {
        uint32_t v = (data[i] << 16) | (data[i + 1] << 8);
        out.push_back(kBase64[v >> 18]);
        out.push_back(kBase64[(v >> 12) & 63]);
        out.push_back(kBase64[(v >> 6) & 63]);
        out.push_back('=');
    }
    return out;
}

bool Crypt::decode_text(const char* text, std::vector<uint8_t>* bytes) {
    if (!text || !bytes) return false;
    size_t len = strlen(text);
    size_t pad = 0;
    while (pad < len && pad < 2 && text[len - 1 - pad] == '=') ++pad;
    // Padding, when present, must complete the last quantum.
    if (pad > 0 && len % 4 != 0) return false;
    const size_t body = len - pad;
    if (body % 4 == 1) return false;
    std::vector<uint8_t> out;
    out.reserve(body / 4 * 3 + 2);
    uint32_t acc = 0;
    int bits = 0;
    for (size_t i = 0; i < body; ++i) {
        int v = base64_value(static_cast<unsigned char>(text[i]));
        if (v < 0) return false;
        acc = (acc << 6) | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<uint8_t>(acc >> bits));
            acc &= (1u << bits) - 1;
        }
    }
    bytes->swap(out);
    return true;
}

bool Crypt::split_sps_pps(const uint8_t* data, size_t size, std::vector<uint8_t>* sps,
                          std::vector<uint8_t>* pps) {
    if (!data || size == 0 || !sps || !pps) return false;
    std::vector<uint8_t> s, p;
    bool ok;
    if (data[0] == 1) {
        ok = split_avcc(data, size, &s, &p);
    } else {
        bool have_sps = false, have_pps = false;
        split_annex_b(data, size, &s, &p, &have_sps, &have_pps);
        ok = have_sps && have_pps;
    }
    if (!ok) return false;
    sps->swap(s);
    pps->swap(p);
    return true;
}

bool Crypt::rewrite_header(const char* path) {
    return rewrite_protected_header(path, this);
}

}  // namespace zp
