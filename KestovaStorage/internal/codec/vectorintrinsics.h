// The processor's vector instructions as functions, <immintrin.h>, without the warnings that GCC 12 gives for its own
// header.
#ifndef KESTOVA_STORAGE_CODEC_VECTORINTRINSICS_H
#define KESTOVA_STORAGE_CODEC_VECTORINTRINSICS_H

#include "KestovaStorage/internal/codec/processor.h"

#if KESTOVA_HAS_BMI2_BUILD
#if !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuninitialized"  // GCC 12 warns of its own undefined vectors (its bug 105593)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>
#pragma GCC diagnostic pop
#else
#include <immintrin.h>
#endif
#endif

#endif
