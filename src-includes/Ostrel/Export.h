// Symbol visibility for libVekTypeDecoder. The library builds with hidden
// visibility; declarations marked OSTREL_EXPORT form its exported interface.
#pragma once

#define OSTREL_EXPORT __attribute__((visibility("default")))
