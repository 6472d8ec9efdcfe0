/*
 * nuxzo: lossless data-compression primitives for x86-64 with AVX.
 *
 * Plain C interface. The caller owns every buffer and state block; the
 * library never allocates, keeps no writable globals and reports through
 * NuxStatus. Streaming calls advance the caller's pointers and lengths.
 */
#ifndef NUXZO_H
#define NUXZO_H

#include <stdint.h>

#if defined(NUXZO_BUILDING_LIBRARY)
#define NUX_API __attribute__((visibility("default")))
#else
#define NUX_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Element types ------------------------------------------------------ */

typedef uint8_t Nux8u;
typedef uint16_t Nux16u;
typedef uint32_t Nux32u;
typedef int32_t Nux32s;
typedef uint64_t Nux64u;
typedef float Nux32f;
typedef double Nux64f;

/* ---- Status codes: 0 success, negative errors, positive warnings -------- */

typedef Nux32s NuxStatus;
enum {
    NuxStatusOk = 0,
    NuxStatusSrcEmpty = 32,   /* source used up inside a sequence or block */
    NuxStatusDstFull = 33,    /* destination full, lengths hold partial work */
    NuxStatusSortLimit = 47,  /* budgeted suffix sort ran out of budget */
    NuxStatusFail = -1,
    NuxStatusDataErr = -2,
    NuxStatusDstOverflow = -4,
    NuxStatusBadArg = -5,
    NuxStatusSize = -6,
    NuxStatusNullPtr = -8,
    NuxStatusBadContext = -13,
    NuxStatusBadAcceleration = -16,
    NuxStatusBadStream = -200,
    NuxStatusLzoStreamErr = -214
};

/* ---- Version ----------------------------------------------------------- */

typedef struct NuxVersionRecord {
    Nux32s major;
    Nux32s minor;
    Nux32s update;
    Nux32s build;         /* revision, printed in hex in `version` */
    char cpuCode[4];      /* "q5" padded with NULs */
    const char* name;     /* "nuxZO AVX (q5)" */
    const char* version;  /* "major.minor.update (r0x%08x)" */
    const char* buildDate; /* "Mmm dd yyyy", day right-aligned in two chars */
} NuxVersionRecord;

NUX_API const NuxVersionRecord* nuxzoGetLibVersion(void);

/* ---- Checksums ---------------------------------------------------------- */

/* Adler-32 (RFC 1950). Start with 1, or pass pSrc == NULL to store 1. */
NUX_API NuxStatus nuxsAdler32_8u(const Nux8u* pSrc, int len, Nux32u* pAdler);
/* CRC-32 (gzip, zlib). Start with 0; every result is a finished CRC. */
NUX_API NuxStatus nuxsCRC32_8u(const Nux8u* pSrc, int len, Nux32u* pCRC);
/* CRC-32C (iSCSI) on the raw register: start with 0xFFFFFFFF, invert at the end. */
NUX_API NuxStatus nuxsCRC32C_8u(const Nux8u* pSrc, Nux32u len, Nux32u* pCRC);
/* bzip2 CRC. Start with 0; every result is a finished CRC. */
NUX_API NuxStatus nuxsCRC32_BZ2_8u(const Nux8u* pSrc, int len, Nux32u* pCRC);

/* ---- Deflate encoder (RFC 1951) ----------------------------------------- */

/* One code-table entry: code (bit-reversed, sent LSB first) and its length.
 * While statistics are gathered, `code` holds a 16-bit count. */
typedef struct NuxDeflateCode {
    Nux16u code;
    Nux16u len;
} NuxDeflateCode;

typedef struct NuxDeflateMatchParams {
    Nux32s chainDepth;      /* candidates per position; 0: single probe (greedy only) */
    Nux32s shortenLength;   /* best length that cuts the remaining budget */
    Nux32s enoughLength;    /* best length that ends the search */
    Nux32s lazyInsertLimit; /* longest match whose positions are hashed */
} NuxDeflateMatchParams;

NUX_API NuxStatus nuxsDeflateLZ77_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pSrcPos,
                                     const Nux8u* pWindow, Nux32u winSize, Nux32s* pHashHead,
                                     Nux32s* pHashChain, Nux32u hashSize,
                                     NuxDeflateCode* pLitFreq, NuxDeflateCode* pDistFreq,
                                     Nux8u* pLitDst, Nux16u* pDistDst, Nux32u* pSlotsLeft,
                                     Nux32u level, Nux32s flush);
NUX_API NuxStatus nuxsDeflateLZ77Fast_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pSrcPos,
                                         const Nux8u* pWindow, Nux32u winSize,
                                         Nux32s* pHashHead, Nux32s* pHashChain,
                                         Nux32u hashSize, NuxDeflateCode* pLitFreq,
                                         NuxDeflateCode* pDistFreq, Nux8u* pLitDst,
                                         Nux16u* pDistDst, Nux32u* pSlotsLeft,
                                         const NuxDeflateMatchParams* pParams, Nux32s flush);
NUX_API NuxStatus nuxsDeflateLZ77Slow_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pSrcPos,
                                         const Nux8u* pWindow, Nux32u winSize,
                                         Nux32s* pHashHead, Nux32s* pHashChain,
                                         Nux32u hashSize, NuxDeflateCode* pLitFreq,
                                         NuxDeflateCode* pDistFreq, Nux8u* pLitDst,
                                         Nux16u* pDistDst, Nux32u* pSlotsLeft,
                                         const NuxDeflateMatchParams* pParams, Nux32s flush);
NUX_API NuxStatus nuxsDeflateDictionarySet_8u(const Nux8u* pDict, int dictLen, Nux32s* pHashHead,
                                              Nux32u hashSize, Nux32s* pHashChain,
                                              Nux8u* pWindow, Nux32u winSize, int level);
NUX_API NuxStatus nuxsDeflateUpdateHash_8u(const Nux8u* pSrc, Nux32u srcPos, Nux32u srcLen,
                                           Nux32s* pHashHead, Nux32u hashSize,
                                           Nux32s* pHashChain, Nux32u winSize, int level);

NUX_API NuxStatus nuxsDeflateHuff_8u(const Nux8u* pLitLen, const Nux16u* pDist, Nux32u symCount,
                                     Nux16u* pBitBuf, Nux32u* pBitCount,
                                     const NuxDeflateCode* pLitLenCodes,
                                     const NuxDeflateCode* pDistCodes, Nux8u* pDst,
                                     Nux32u* pDstPos);

/* ---- Fastest Deflate: single probe, precomputed header (RFC 1951) ------ */

/* ---- Inflate (RFC 1951) ------------------------------------------------- */

/* Decoding tables and resumable decoder state of one Deflate block. The caller
 * sets pWindow, winSize and kind (0 = fixed codes, no build needed) before
 * decoding; nuxsInflateBuildHuffTable sets kind 1 or 2 and the tables. */
typedef struct NuxInflateHuffTable {
    const Nux8u* pWindow; /* circular history window, or NULL */
    Nux32u winSize;       /* its size in bytes */
    Nux32u kind;          /* 0 fixed, 1 general layout, 2 short layout */
    Nux32u reserved[2];
    Nux32u subState;      /* where an interrupted symbol resumes (private) */
    Nux32u saved[3];      /* values kept with subState (private) */
    Nux32u maxLitLenBits; /* longest literal/length code (short layout) */
    Nux32u maxDistBits;   /* longest distance code (short layout) */
    /* 7168 bytes: the short layout at its largest (2^11 16-bit literal/length
     * entries, 1024 distance bytes, 2^10 16-bit distances) needs them all. */
    Nux8u table[7168];
} NuxInflateHuffTable;
#define NUX_INFLATE_HUFF_TABLE_SIZE (48 + 7168)

NUX_API NuxStatus nuxsInflateBuildHuffTable(const Nux16u* pCodeLens, unsigned int nLitLen,
                                            unsigned int nDist, NuxInflateHuffTable* pTable);
NUX_API NuxStatus nuxsInflate_8u(const Nux8u** ppSrc, Nux32u* pSrcLen, Nux32u* pCode,
                                 Nux32u* pCodeLenBits, Nux32u winIdx, Nux8u** ppDst,
                                 Nux32u* pDstLen, Nux32u dstIdx, Nux32u* pMode,
                                 NuxInflateHuffTable* pState);

/* ---- LZ4 block format --------------------------------------------------- */

NUX_API NuxStatus nuxsDecodeLZ4_8u(const Nux8u* pSrc, int srcLen, Nux8u* pDst, int* pDstLen);
NUX_API NuxStatus nuxsDecodeLZ4Dict_8u(const Nux8u* pSrc, int* pSrcLen, Nux8u* pDst, int dstIdx,
                                       int* pDstLen, const Nux8u* pDict, int dictSize);

NUX_API NuxStatus nuxsEncodeLZ4HashTableGetSize_8u(int* pHashTableSize);
NUX_API NuxStatus nuxsEncodeLZ4HashTableInit_8u(Nux8u* pHashTable, int srcLen);
NUX_API NuxStatus nuxsEncodeLZ4_8u(const Nux8u* pSrc, int srcLen, Nux8u* pDst, int* pDstLen,
                                   Nux8u* pHashTable);
NUX_API NuxStatus nuxsEncodeLZ4Safe_8u(const Nux8u* pSrc, int* pSrcLen, Nux8u* pDst,
                                       int* pDstLen, Nux8u* pHashTable);
NUX_API NuxStatus nuxsEncodeLZ4Fast_8u(const Nux8u* pSrc, int srcLen, Nux8u* pDst, int* pDstLen,
                                       Nux8u* pHashTable, int acceleration);

NUX_API NuxStatus nuxsEncodeLZ4DictHashTableInit_8u(Nux8u* pHashTable, int srcLen);
NUX_API NuxStatus nuxsEncodeLZ4LoadDict_8u(Nux8u* pHashTable, const Nux8u* pDict, int dictSize);
NUX_API NuxStatus nuxsEncodeLZ4Dict_8u(const Nux8u* pSrc, int srcIdx, int srcLen, Nux8u* pDst,
                                       int* pDstLen, Nux8u* pHashTable, const Nux8u* pDict,
                                       int dictSize);
NUX_API NuxStatus nuxsEncodeLZ4DictSafe_8u(const Nux8u* pSrc, int srcIdx, int* pSrcLen,
                                           Nux8u* pDst, int* pDstLen, Nux8u* pHashTable,
                                           const Nux8u* pDict, int dictSize);

/* ---- LZ4 high compression ---------------------------------------------- */

/* ---- LZO1X ------------------------------------------------------------- */

/* ---- LZSS ------------------------------------------------------------- */

/* ---- bzip2 stages ------------------------------------------------------ */

/* Run-length stage and symbol sets */

/* Burrows-Wheeler transform */

/* Move-to-front and zero runs */

/* Huffman stage and block decoding */

/* ---- ZFP: 4x4x4 float blocks ------------------------------------------- */

#ifdef __cplusplus
}
#endif

#endif /* NUXZO_H */
