// The banks' bytes, included by the assembler from data/banks/ (TAVRIN_BANK_DIR): 1,312,200 bytes
// each, little-endian i16. Hidden symbols, so the shared library exports nothing new.
#include "merge/pattern_banks.h"

#ifndef TAVRIN_BANK_DIR
#error "TAVRIN_BANK_DIR names the folder of pattern_bank_0.bin and pattern_bank_1.bin"
#endif

#define TAVRIN_BANK_SYMBOL(name, file)    \
    ".section .rodata\n"                  \
    ".balign 16\n"                        \
    ".globl " name                        \
    "\n"                                  \
    ".hidden " name                       \
    "\n"                                  \
    ".type " name ", %object\n" name      \
    ":\n"                                 \
    ".incbin \"" TAVRIN_BANK_DIR "/" file \
    "\"\n"                                \
    ".size " name ", . - " name           \
    "\n"                                  \
    ".previous\n"

__asm__(TAVRIN_BANK_SYMBOL("tav_sr2_pattern_bank_0", "pattern_bank_0.bin"));
__asm__(TAVRIN_BANK_SYMBOL("tav_sr2_pattern_bank_1", "pattern_bank_1.bin"));
