#pragma once
// Program texts held protected, so that they do not stand readable in the executable.
// To change one, edit the quoted text in its comment line (or add a new `#define NAME "text"`)
// and run `kinefix-crypt rewrite src/crypt/protected_strings.h`.

#include <cstdint>

#include "crypt/crypt.h"

  // "https://kinefix.example.org"
const static uint16_t s_ZP_MAKER_ADDRESS[] = {0xfea6,0x99d1,0x5778,0xd283,0x4f80,0xddab,0xb361,0x8333,0xcb2d,0xcbfc,0xd452,0x832e,
    0x4b2e,0x2dd5,0x188c,0x5feb,0x550e,0x3c35,0x2c98,0x5448,0x25c3,0x76c8,0x6ab5,0xb28c,
    0xfe0,0x76bf,0x7f75,0x51a4,};
#define ZP_MAKER_ADDRESS ZpTrDe(s_ZP_MAKER_ADDRESS)


// Members of the option text of the one-argument form.
  // "broken_file"
const static uint16_t s_ZP_KEY_BROKEN_FILE[] = {0xba13,0x646d,0xd2e2,0x8ba9,0x212c,0xa20,0xde76,0xcfc7,0x325c,0xd6d4,0x6800,0x6561,};
#define ZP_KEY_BROKEN_FILE ZpTrDe(s_ZP_KEY_BROKEN_FILE)

  // "moov_file"
const static uint16_t s_ZP_KEY_MOOV_FILE[] = {0xeaa6,0xd308,0x5094,0x8db1,0x2b72,0x6a2b,0x98bf,0xc7ff,0x5fc7,0x752a,};
#define ZP_KEY_MOOV_FILE ZpTrDe(s_ZP_KEY_MOOV_FILE)

  // "output_file"
const static uint16_t s_ZP_KEY_OUTPUT_FILE[] = {0x505d,0xba9f,0x73ee,0x59f5,0xeabc,0x8e94,0x8e9f,0x8030,0x93,0xc2ec,0x9b23,0xa628,};
#define ZP_KEY_OUTPUT_FILE ZpTrDe(s_ZP_KEY_OUTPUT_FILE)

