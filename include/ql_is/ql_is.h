/*
 * libql_is: camera image selection against hand shake.
 *
 * Public C interface. Every function and global declared with QL_IS_API is
 * an unmangled symbol of libql_is.so; nothing else is exported.
 *
 * Conventions used throughout this header:
 *  - A packed RAW10 frame is `height` rows of `stride` bytes; along a row,
 *    five-byte groups carry four 10-bit pixels. The library's 8-bit sample
 *    of a group is the byte at offset 4 of the group, whatever the sensor's
 *    packing puts there; it never unpacks the 10-bit values.
 *  - The kernels trust their callers: sizes and geometry are not checked
 *    beyond what each function documents. "Caller guarantees" lists what
 *    the caller must ensure for the call to stay inside its buffers.
 *  - Integer sums have the widths stated per function and wrap.
 */
#ifndef QL_IS_QL_IS_H
#define QL_IS_QL_IS_H

#include <pthread.h>
#include <stdint.h>
#include <string.h>

#if defined(__GNUC__) || defined(__clang__)
#define QL_IS_API __attribute__((visibility("default")))
#else
#define QL_IS_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Records
 * ------------------------------------------------------------------------ */

/* One block's features: six doubles, 48 bytes. Which fields a producer
 * fills depends on the producer (see each frame driver). */
typedef struct BlockFeature {
  double sample_sum;
  double reserved;
  double deviation_sum;
  double bright_ratio;
  double dark_ratio;
  double variation;
} BlockFeature;

/* The 8 x 8 block grid, row-major: block (r, c) is block[8 * r + c].
 * 3072 bytes. */
typedef struct BlockFeatureSet {
  BlockFeature block[64];
} BlockFeatureSet;

/* 256 signed 32-bit counts of absolute sample differences (1024 bytes).
 * The low-light driver takes 64 of them in one contiguous 64 KiB array. */
typedef struct DiffHistogram {
  int32_t count[256];
} DiffHistogram;

/* Bump allocator over one heap block. Three words: 12 bytes on 32-bit
 * targets. Invariant: used <= total. */
typedef struct ScratchArena {
  uint8_t *base;  /* start of the block */
  uint32_t total; /* capacity in bytes */
  uint32_t used;  /* bytes consumed from base, alignment padding included */
} ScratchArena;

/* ------------------------------------------------------------------------
 * Host records
 *
 * Their byte offsets are part of the interface with the camera host. On
 * 32-bit targets a pointer takes 4 bytes and the 4 bytes after it are the
 * host's own; on 64-bit targets the pointer takes all 8, so that every
 * 32-bit field keeps its offset on both.
 * ------------------------------------------------------------------------ */

typedef union ql_is_ptr_slot {
  uint8_t *ptr;
  uint32_t words[2];
} ql_is_ptr_slot;

/* One frame, as handed to ql_is_process_preview and
 * ql_is_process_takepicture (at least 120 bytes). Reserved bytes are the
 * host's: the library neither reads nor writes them. */
#pragma pack(push, 4)
typedef struct FrameParam {
  int32_t format;          /* 0: 15 packed RAW10, 10 and 13 YUV */
  int32_t width;           /* 4: pixels */
  int32_t height;          /* 8: pixels */
  ql_is_ptr_slot image;    /* 12: image buffer, never NULL */
  uint8_t reserved_20[8];
  int32_t stride;          /* 28: bytes per line of image */
  uint8_t reserved_32[24];
  ql_is_ptr_slot side;     /* 56: side buffer, NULL allowed with side_size 0 */
  uint8_t reserved_64[44];
  uint32_t image_size;     /* 108: bytes of image to copy, <= 32,000,000 */
  uint32_t side_size;      /* 112: bytes of side to copy, <= 400,000 */
  int32_t mode;            /* 116: 0 preview, 1 capture */
} FrameParam;
#pragma pack(pop)

/* The burst record of ql_is_process_bat_takepicture (at least 548 bytes),
 * described by offsets: frame records are 44 bytes apart. Width, height
 * and stride of frame 0 are used for every frame; the others only name
 * dump files. */
#define QL_IS_BURST_MAX_FRAMES 6
#define QL_IS_BURST_WIDTH(i) (4 + 44 * (i))
#define QL_IS_BURST_HEIGHT(i) (8 + 44 * (i))
#define QL_IS_BURST_IMAGE(i) (12 + 44 * (i))  /* pointer, never NULL */
#define QL_IS_BURST_STRIDE(i) (28 + 44 * (i))
#define QL_IS_BURST_SIDE(i) (276 + 44 * (i))  /* pointer: receives bufmax's side */
#define QL_IS_BURST_IMAGE_SIZE 528            /* uint32: bytes of each image */
#define QL_IS_BURST_SIDE_SIZE 532             /* uint32: bytes of each side buffer */
#define QL_IS_BURST_COUNT 536                 /* int32: 2 to 6 */
#define QL_IS_BURST_RESULT 540                /* int32: written by the library */
#define QL_IS_BURST_MODE 544                  /* int32: must be 1 */
#define QL_IS_BURST_RECORD_SIZE 548

/* Unaligned access to the burst record (and any host record) for C hosts. */
static inline void ql_is_record_put_i32(void *record, int offset, int32_t v) {
  memcpy((uint8_t *)record + offset, &v, sizeof v);
}
static inline int32_t ql_is_record_get_i32(const void *record, int offset) {
  int32_t v;
  memcpy(&v, (const uint8_t *)record + offset, sizeof v);
  return v;
}
static inline void ql_is_record_put_ptr(void *record, int offset, void *p) {
  memcpy((uint8_t *)record + offset, &p, sizeof p);
}
static inline void *ql_is_record_get_ptr(const void *record, int offset) {
  void *p;
  memcpy(&p, (const uint8_t *)record + offset, sizeof p);
  return p;
}

/* ------------------------------------------------------------------------
 * Session
 * ------------------------------------------------------------------------ */

/* An image buffer and its side buffer. */
typedef struct BufPair {
  uint8_t *image;
  uint8_t *side;
} BufPair;

/* The job record of the frame under evaluation (72 bytes on 32-bit
 * targets). image and side are the host's pointers, which may be stale by
 * the time the frame is evaluated: the evaluation reads bufproc. */
typedef struct PrevParam {
  uint8_t *image;
  uint8_t *side;
  int32_t reserved_2;
  int32_t reserved_3;
  int32_t height;
  int32_t width;
  int32_t one;        /* always 1 */
  int32_t stride;
  int32_t format;
  int32_t roi_left;   /* the central half of the frame, inclusive bounds */
  int32_t roi_top;
  int32_t roi_right;
  int32_t roi_bottom;
  int32_t reserved_13;
  uint32_t image_size;
  uint32_t side_size;
  int32_t capture;    /* 1 when filled by a capture */
  int32_t result;     /* the evaluation's verdict */
} PrevParam;

/* The preview worker's record. idle, pending and quit are flags;
 * preview_calls and capture_calls count the entry-point calls inside the
 * library. The library accesses quit and the counters atomically. */
typedef struct AsIQThdInfo {
  uint8_t idle;
  uint8_t pending;
  uint8_t quit;
  int32_t preview_calls;
  int32_t capture_calls;
  pthread_mutex_t mutex;
  pthread_cond_t work;
  pthread_cond_t done;
  pthread_t thread;
} AsIQThdInfo;

/* Sizes of every image buffer and every side buffer: {32000000, 400000}. */
QL_IS_API extern const uint32_t size[2];

QL_IS_API extern uint8_t *buf[6];   /* image 0, side 0, image 1, side 1, ... */
QL_IS_API extern BufPair buftemp;   /* free: receives the next frame */
QL_IS_API extern BufPair bufmax;    /* the best frame kept so far */
QL_IS_API extern BufPair bufproc;   /* the frame under evaluation */
QL_IS_API extern BlockFeatureSet base_feature;
/* The base image's quality: the 8 bytes hold the judgements' signed 64-bit
 * quality (0 means no base image yet). */
QL_IS_API extern double base_quality;
QL_IS_API extern double base_clarity;           /* re-blur score of the base */
QL_IS_API extern DiffHistogram *base_diff_hist; /* 64 KiB block */
QL_IS_API extern uint8_t *base_raw_fea;         /* 2560-byte block */
QL_IS_API extern ScratchArena alg_buf;
QL_IS_API extern PrevParam prevParam;
QL_IS_API extern int32_t initDone;
QL_IS_API extern int32_t dump_count;
QL_IS_API extern double last_luminance;         /* 255.0 at load */
QL_IS_API extern int32_t image_index;           /* reserved */
QL_IS_API extern AsIQThdInfo g_asIQThdInfo;

/* Allocates every buffer, clears the base image and starts the worker.
 * Returns 0, or -1 when a session exists or a buffer cannot be allocated.
 * Never call it concurrently with any other function of the library. */
QL_IS_API int32_t ql_is_init(void);

/* Stops the worker, waits for calls in flight and frees everything. Safe
 * while preview and capture calls run on other threads; calls that start
 * meanwhile return at once. Does nothing without a session. */
QL_IS_API int32_t ql_is_deinit(void);

/* "QELARN-AS-V2.0.6", with or without a session. */
QL_IS_API const char *ql_is_get_version(void);

/* Hands a preview frame (mode 0) to the worker when it is idle, else drops
 * it; never waits. */
QL_IS_API void ql_is_process_preview(const FrameParam *frame);

/* Evaluates a captured frame (mode 1) against the base image on the
 * caller's thread; when it is not better, overwrites its image and side
 * buffers with the best preview frame. Returns 0, or -1 when refused. */
QL_IS_API int32_t ql_is_process_takepicture(FrameParam *frame);

/* Names the sharpest (result field) and blurriest frame of a burst of 2 to
 * 6 and, when the burst is consistent with the base image, overwrites the
 * blurriest with the best preview frame. Returns 0, or -1 when refused. */
QL_IS_API int32_t ql_is_process_bat_takepicture(void *burst);

/* The worker's thread body (argument: &g_asIQThdInfo) and its evaluation
 * of the job in prevParam; exported for hosts that drive them. */
QL_IS_API void *startAsImageQualityThread(void *info);
QL_IS_API int32_t PreviewThread(PrevParam *job);

/* ------------------------------------------------------------------------
 * Buffer rotation and copies
 * ------------------------------------------------------------------------ */

/* Exchanges the pointer-sized words a[i] and b[i] for i = 0 .. n - 1;
 * nothing happens for n <= 0. When n > 5 and the first 16 bytes of the two
 * arrays do not overlap, four words at a time go through vector loads and
 * stores (all four of a and of b are loaded before either is stored), the
 * remainder one by one; otherwise word by word.
 * Caller guarantees: a and b each hold n words. */
QL_IS_API void swap_buf(void *a, void *b, int32_t n);

/* Copies n bytes: 64-byte blocks through 128-bit vector loads and stores,
 * the last n mod 64 bytes with memcpy. No alignment needed.
 * Caller guarantees: both areas hold n bytes and do not overlap. */
QL_IS_API void zs_memcpy(void *dst, const void *src, uint32_t n);

/* Fills n / 64 whole 64-byte blocks with the low byte of value and sets the
 * remaining n mod 64 bytes to 0 (not to value; kept as it always was).
 * Caller guarantees: dst holds n bytes. */
QL_IS_API void zs_memset(void *dst, int32_t value, uint32_t n);

/* ------------------------------------------------------------------------
 * Scratch arena and re-blur comparison
 * ------------------------------------------------------------------------ */

/* Returns `length` bytes from the arena at the next 64-byte-aligned
 * address and advances arena->used by the padding plus length, or returns
 * NULL, logs the shortfall and leaves the arena unchanged when they do not
 * fit. element_size is accepted and ignored.
 * Caller guarantees: arena is valid and arena->base + arena->total is the
 * end of a block the caller owns. */
QL_IS_API void *AssignMemSpace(ScratchArena *arena, uint32_t length,
                               int32_t element_size);

/* Sharpness of a packed RAW10 frame: the sampled quarter-resolution plane
 * (byte 4 of every group of every fourth row, starting at row 3) is blurred
 * with a (2 radius + 1)^2 box; returns the summed absolute change divided by
 * the summed brightness over the blurred interior. Larger is sharper.
 * Returns NaN when height / 4 <= 2 radius, when width / 4 <= 2 radius
 * (0 / 0), for an all-black interior (0 / 0), and when an arena request
 * fails (the failed request is logged). mode is ignored. The arena is
 * taken by value: every call starts from the arena's used count and its
 * pieces fall free on return.
 * Caller guarantees: radius >= 0; rows 0 .. height - 1 of `stride` bytes
 * are readable, with stride >= 5 * (width / 4); the arena holds
 * 2 * W4 * H4 + 4 * (W4 + 1) * (H4 + 1) bytes plus 189 bytes of alignment
 * (W4 = width / 4, H4 = height / 4); no other comparison uses the same
 * arena block at the same time. */
QL_IS_API double compare_reblue_with_luminance_compensation(
    const uint8_t *image, int32_t height, int32_t width, uint32_t stride,
    uint32_t mode, int32_t radius, ScratchArena arena);

/* ------------------------------------------------------------------------
 * Judgements against the base image
 *
 * Verdicts: 2 the frame is sharper than the base; 4 it replaced the base for
 * another reason (scene change, too little texture); 3 keep the current
 * best (also the result of mode 0); -1 (0xFFFFFFFF) unknown mode.
 * Mode 0 rebuilds the base from best_frame, mode 1 judges frame. The base
 * image is passed in by reference and updated in place: base_quality (the
 * extractor's 64-bit quality, 0 for no base), base_features, base_clarity
 * (re-blur score), and in low light the 64 KiB base_hist. base_raw (2560
 * bytes) is accepted and only cleared on a change of lighting regime.
 * Frames are packed RAW10 (YUV for the last one); the arena is handed on
 * to the re-blur comparison.
 * Caller guarantees: frame geometry as for the feature drivers and the
 * re-blur comparison; width * height >= 16; every pointer valid except
 * luminance_out, which may be NULL.
 * ------------------------------------------------------------------------ */

/* Diagnostic count of consecutive judgements that found a scene change
 * (RAW10 paths); nothing in the library reads it. */
QL_IS_API extern uint32_t scene_change_count;

/* Chooses the normal-light or low-light judgement from *luminance (the
 * luminance of the current lighting regime, 255.0 at session start) and
 * resets the base image when the regime flips. */
QL_IS_API uint32_t judge_scene_and_qualitye(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features,
    DiffHistogram *base_hist, uint8_t *base_raw, double *base_clarity,
    double *luminance, int32_t height, int32_t width, int32_t stride,
    ScratchArena arena);

/* Normal light. *luminance_out receives the base image's luminance after
 * the update. */
QL_IS_API int32_t calc_quality_with_base_image(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features, uint8_t *base_raw,
    double *base_clarity, double *luminance_out, int32_t height, int32_t width,
    int32_t stride, ScratchArena arena);

/* Low light. *luminance_out receives the frame's own mean sample. */
QL_IS_API int32_t calc_quality_with_base_image_low_light(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features,
    DiffHistogram *base_hist, uint8_t *base_raw, double *base_clarity,
    double *luminance_out, int32_t height, int32_t width, int32_t stride,
    ScratchArena arena);

/* YUV: better means a larger YUV frame value; the three geometry words are
 * handed to calc_feature_quality_with_sub_yuv as its height, width and
 * stride. */
QL_IS_API int32_t calc_quality_with_base_image_yuv(
    int32_t mode, const uint8_t *frame, const uint8_t *best_frame,
    int64_t *base_quality, BlockFeatureSet *base_features, int32_t geometry_a,
    int32_t geometry_b, int32_t geometry_c);

/* ------------------------------------------------------------------------
 * Scene-change detection
 * ------------------------------------------------------------------------ */

/* Median of field `field` (0 = sample_sum .. 5 = variation) over the blocks
 * whose mask byte is 1, and its population variance in *variance_out.
 * Values are sorted in descending order with excluded blocks as 0.0; for an
 * even count n the median is (sorted[n/2] + sorted[n/2 + 1]) / 2, one place
 * past the usual middle pair (kept as tuned). An empty mask gives median 0
 * and variance NaN.
 * Caller guarantees: 0 <= field <= 5; mask has 64 bytes. */
QL_IS_API double calcMedianFeatureAndVarianceV2(const BlockFeatureSet *features,
                                                double *variance_out,
                                                int32_t field,
                                                const uint8_t *mask);

/* The same over all 64 blocks in ascending order: median
 * (sorted[32] + sorted[33]) / 2, variance from the sums scaled by 1/64.
 * Caller guarantees: 0 <= field <= 5. */
QL_IS_API double calcMedianFeatureAndVariance(const BlockFeatureSet *features,
                                              double *variance_out,
                                              int32_t field);

/* 1 when more than half of the masked blocks (mask byte 1) changed their
 * sample_sum by more than variance * 0.03 * exp(median * 0.01), with the
 * median and variance of the set whose median is smaller; else 0.
 * Caller guarantees: mask has 64 bytes. */
QL_IS_API int32_t judge_scene_change(const BlockFeatureSet *features_a,
                                     const BlockFeatureSet *features_b,
                                     const uint8_t *mask);

/* ------------------------------------------------------------------------
 * RAW10 block features (normal light)
 *
 * Sample (i, g) = data[2 * i * stride + 5 * g + 4]: i counts row pairs,
 * g five-byte groups. A block rectangle is given in pixels, ends exclusive,
 * and covers row pairs row_begin >> 1 .. row_end >> 1 and groups
 * col_begin >> 2 .. col_end >> 2, with the far edges pulled in so that the
 * neighbours dist samples right and below stay one sample inside the frame.
 * ------------------------------------------------------------------------ */

/* Gradient energy of one block (32-bit, wrapping) and its brightness
 * statistics. stats_flag / gradient_flag: (1, 1) everything, (0, 1)
 * gradient and fractions (*sum_out = 0), (1, 0) statistics only (returns
 * 0); other pairs return -1 after zeroing the fractions. An empty
 * rectangle zeroes *sum_out and *dev_out and returns -1.
 * Caller guarantees: all outputs valid; 0 <= row_begin, 0 <= col_begin;
 * dist >= 0; the rows 0 .. height - 1 of `stride` bytes are readable, with
 * stride >= 5 * (width / 4). */
QL_IS_API int32_t image_feature_quality_for_raw_10bit_continuous_3(
    uint64_t *sum_out, uint64_t *dev_out, double *cv_out, double *bright_out,
    double *dark_out, const uint8_t *data, int32_t row_begin, int32_t row_end,
    int32_t col_begin, int32_t col_end, int32_t dist, int32_t height,
    int32_t width, int32_t stride, int32_t stats_flag, int32_t gradient_flag);

/* Fills the 64 block records of an 8 x 8 grid (blocks of height >> 3 rows
 * by width >> 3 columns) and returns the frame's sharpness value.
 * mode 0 (and any value but 1 and 2): statistics and gradient on the
 * checkerboard (r + c even), gradient only elsewhere; 1: statistics on the
 * checkerboard only, returns 0; 2: gradient only everywhere. Gradient-only
 * blocks carry the deviation_sum and variation of the last statistics block
 * (kept on purpose). Field `reserved` is never written.
 * Caller guarantees: as for the block extractor, with width and height
 * >= 0. */
QL_IS_API uint64_t calc_feature_quality_with_sub(BlockFeatureSet *features,
                                                 uint32_t mode,
                                                 const uint8_t *data,
                                                 int32_t height, int32_t width,
                                                 int32_t stride);

/* ------------------------------------------------------------------------
 * RAW10 block features (low light)
 *
 * As above, but only every second row pair of the block is visited (frame
 * rows 0, 4, 8, ... from the block's first row pair).
 * ------------------------------------------------------------------------ */

/* Statistics of one block (stats_flag 1): mean, (sumsq - mean^2) * N,
 * coefficient of variation and the bright / dark fractions; difference
 * histogram (gradient_flag 1): adds |h - s|, |v - s| and |h - v| for every
 * visited sample to diff_hist. Returns 0, or -1 for an empty block.
 * mean_out and dev_out may be NULL only when the block is empty.
 * Caller guarantees: the other outputs valid; 0 <= row_begin,
 * 0 <= col_begin; dist >= 1 with the frame readable dist - 1 row pairs
 * below its last row for dist > 1 (the lower neighbour is 2 * dist row
 * pairs down); stride >= 5 * (width / 4). */
QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light_4(
    double *mean_out, double *dev_out, double *cv_out, double *bright_out,
    double *dark_out, DiffHistogram *diff_hist, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t height, int32_t width, int32_t stride,
    int32_t stats_flag, int32_t gradient_flag);

/* Fills the 64 block records (field 0 the block mean, field 1 the
 * extractor's result) and adds to diff_hists[8 r + c], which it never
 * clears. mode 0 (and any value but 1 and 2): statistics and histograms;
 * 1: statistics only, returns 0; 2: histograms only.
 * Caller guarantees: diff_hists holds 64 histograms; frame as for the
 * low-light block extractor with dist 1. */
QL_IS_API uint64_t calc_feature_quality_with_sub_low_light(
    BlockFeatureSet *features, DiffHistogram *diff_hists, uint32_t mode,
    const uint8_t *data, int32_t height, int32_t width, int32_t stride);

/* ------------------------------------------------------------------------
 * YUV and YUYV block features
 *
 * Samples are data[y * stride + x] at every fourth row and every fourth
 * byte of the block; neighbours dist bytes right and dist rows below.
 * ------------------------------------------------------------------------ */

/* Sum of the samples (written as an unsigned 64-bit value, or as 0.0) and
 * 64-bit gradient energy of one block. Flags as for the RAW10 extractor;
 * *aux_out is only zeroed, on an empty block. Returns UINT64_MAX for an
 * empty block or an invalid flag pair. `unused` is ignored.
 * Caller guarantees: outputs valid; 0 <= row_begin, 0 <= col_begin,
 * dist >= 0; rows 0 .. height - 1 of `stride` bytes readable, with
 * stride >= width. */
QL_IS_API uint64_t image_feature_quality_for_yuv_skip2(
    uint64_t *sum_out, uint64_t *aux_out, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t unused, int32_t height, int32_t width,
    int32_t stride, int32_t stats_flag, int32_t gradient_flag);

/* Block sums on the checkerboard (field 0 only; fields 1 to 5 untouched,
 * 0.0 off the checkerboard) and the frame's sharpness value. The YUYV name
 * reads the frame exactly like a planar luma plane (kept as it always
 * was). Caller guarantees: as for the YUV block extractor. */
QL_IS_API uint64_t calc_feature_quality_with_sub_yuv(BlockFeatureSet *features,
                                                     const uint8_t *data,
                                                     int32_t height,
                                                     int32_t width,
                                                     int32_t stride);
QL_IS_API uint64_t calc_feature_quality_with_sub_yuyv(BlockFeatureSet *features,
                                                      const uint8_t *data,
                                                      int32_t height,
                                                      int32_t width,
                                                      int32_t stride);

/* ------------------------------------------------------------------------
 * Earlier RAW10 block features (kept for hosts; the live path does not use
 * them). Rectangles and samples as for the normal-light extractor above.
 * ------------------------------------------------------------------------ */

/* Sum of the block's samples into *sum_out, for a frame whose rows are
 * taken to be packed without padding: (width * 10) / 8 bytes apart, whatever
 * the real stride (a padded frame is read at the wrong rows). An empty
 * rectangle stores 0 into *sum_out and zeroes *aux_out, which is otherwise
 * untouched.
 * Caller guarantees: outputs valid; 0 <= row_begin, 0 <= col_begin,
 * dist >= 0; height rows of (width * 10) / 8 bytes readable. */
QL_IS_API void image_feature_for_raw_10bit_continuous_2(
    uint64_t *sum_out, uint64_t *aux_out, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t height, int32_t width);

/* Writes the checkerboard blocks' sample sums (unpadded rows, as above)
 * into field 0 of features, 0.0 into field 0 of the other blocks, and
 * leaves fields 1 to 5 untouched. Returns the result of its closing log
 * call (not meaningful).
 * Caller guarantees: as for image_feature_for_raw_10bit_continuous_2. */
QL_IS_API int32_t calc_feature_with_sub(BlockFeatureSet *features,
                                        const uint8_t *data, int32_t height,
                                        int32_t width);

/* Integer statistics of one block: *sum_out the sample sum and *dev_out
 * sumsq - sum * sum / N with a truncating division (it can differ by one
 * from the floating-point deviation of the live extractor), and the 32-bit
 * gradient energy. Flags and the empty rectangle as for
 * image_feature_quality_for_raw_10bit_continuous_3. The value is the low
 * 32 bits of the result; the library sign-extends it.
 * Caller guarantees: as for image_feature_quality_for_raw_10bit_continuous_3. */
QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2(
    uint64_t *sum_out, uint64_t *dev_out, const uint8_t *data,
    int32_t row_begin, int32_t row_end, int32_t col_begin, int32_t col_end,
    int32_t dist, int32_t height, int32_t width, int32_t stride,
    int32_t stats_flag, int32_t gradient_flag);

/* Consecutive calls of calc_feature_with_base_image that found no scene
 * change (0 at load, reset only by a change). */
QL_IS_API extern int32_t sccount;

/* Scene test of a RAW10 frame against a caller-owned base set from the
 * checkerboard block sums (calc_feature_quality_with_sub, mode 1). Returns
 * 4 when the scene changed, which refreshes the base, and 3 otherwise.
 * From the third unchanged call in a row on, the base is cleared and 0.0 is
 * stored into *score_out (kept as tuned).
 * Not reentrant: sccount is shared by all callers.
 * Caller guarantees: frame as for calc_feature_quality_with_sub. */
QL_IS_API int32_t calc_feature_with_base_image(const uint8_t *data,
                                               double *score_out,
                                               BlockFeatureSet *base,
                                               int32_t height, int32_t width,
                                               int32_t stride);

/* ------------------------------------------------------------------------
 * Earlier low-light block features
 *
 * As image_feature_quality_for_raw_10bit_continuous_2_low_light_4, except
 * that they divide by N = (groups) * ((t1 - t0) >> 1): when the block has
 * an odd number of row pairs the last visited one is summed but not
 * counted, and a block of a single row pair gives N = 0 (a mean of NaN or
 * infinity). Histograms are 256 unsigned 32-bit counters, added to and
 * never cleared. Each returns -1 for an empty rectangle, else 0 unless
 * stated.
 * Caller guarantees: as for the _low_light_4 extractor.
 * ------------------------------------------------------------------------ */

/* Mean only (stats_flag 1) and the difference histogram (gradient_flag 1).
 * Clears *mean_out and sets *spare_out to 0.0 first (each when not NULL). */
QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light_2(
    double *mean_out, double *spare_out, uint32_t *diff_hist,
    const uint8_t *data, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t dist, int32_t height, int32_t width,
    uint32_t stride, int32_t stats_flag, int32_t gradient_flag);

/* Mean and the sum of squared deviations sumsq - N * mean * mean,
 * truncated to a signed 64-bit integer (stats_flag 1), and the difference
 * histogram (gradient_flag 1). Clears *mean_out and *dev_out first (each
 * when not NULL). */
QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light_3(
    double *mean_out, int64_t *dev_out, uint32_t *diff_hist,
    const uint8_t *data, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t dist, int32_t height, int32_t width,
    uint32_t stride, int32_t stats_flag, int32_t gradient_flag);

/* Summed gradients g = |h - s| + |v - s| + |h - v| instead of a histogram.
 * (1, 1): *mean_out the mean, returns the sum of g; (0, 1): *mean_out 0,
 * returns the sum of g * s; (1, 0): the mean, returns 0; (0, 0): *mean_out
 * 0, returns 0. *spare_out is written (0.0) only for an empty rectangle,
 * which also clears *mean_out. */
QL_IS_API int64_t image_feature_quality_for_raw_10bit_continuous_2_low_light(
    double *mean_out, double *spare_out, const uint8_t *data, int32_t top,
    int32_t bottom, int32_t left, int32_t right, uint32_t dist,
    int32_t height, int32_t width, uint32_t stride, int32_t stats_flag,
    int32_t gradient_flag);

/* calc_feature_with_sub_tile is not provided: this library defines no
 * behaviour for it. */

/* ------------------------------------------------------------------------
 * Whole-image metrics (kept for hosts; the live path does not use them)
 * ------------------------------------------------------------------------ */

/* Gradient energy of the inclusive rectangle [top, bottom] x [left, right]
 * of an 8-bit image with lines of `width` pixels and no gap between lines:
 * the sum of |s(x, y) - s(x, y + distance)| + |s(x, y) - s(x + distance, y)|
 * over the rectangle, 32-bit and wrapping. Pixel (x, y) is the byte at
 * frame + B * (y * width + x), B = 1 here, bytes_per_pixel for the common
 * variant and 2 for YUYV (the luma byte of each pixel). top > bottom or
 * right < left gives 0. `extra` is ignored.
 * Caller guarantees: 0 <= distance; the rectangle and its neighbours lie
 * inside the frame (right + distance < width, bottom + distance below the
 * last line); no bound is clipped. */
QL_IS_API int32_t image_equality(const uint8_t *frame, int32_t top,
                                 int32_t bottom, uint32_t left, int32_t right,
                                 int32_t distance, uint32_t extra,
                                 uint32_t width);
QL_IS_API uint32_t image_equality_common(const uint8_t *frame, int32_t top,
                                         int32_t bottom, uint32_t left,
                                         int32_t right, int32_t distance,
                                         uint32_t bytes_per_pixel,
                                         uint32_t extra, uint32_t width);
QL_IS_API uint32_t image_equality_for_yuyv(const uint8_t *frame, int32_t top,
                                           int32_t bottom, uint32_t left,
                                           int32_t right, int32_t distance,
                                           uint32_t extra, uint32_t width);

/* Squared-difference gradient energy of a rectangle of a packed RAW10
 * frame whose rows are (width * 10) / 8 bytes apart (no stride), at the
 * given distance; every second line and one sample per group; 32-bit and
 * wrapping. The far edges are pulled in so the neighbours stay inside the
 * frame; returns -1 when nothing is left.
 * Caller guarantees: 0 <= top, 0 <= left; height rows of (width * 10) / 8
 * bytes readable. */
QL_IS_API int32_t image_quality_for_raw_10bit_continuous_2(
    const uint8_t *frame, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t distance, int32_t height, int32_t width);

/* The same with absolute differences at distance 1 (`distance` is ignored)
 * and the rectangle divided rounding toward zero instead of shifted. */
QL_IS_API int32_t image_quality_for_raw_10bit_continuous_2_true_pitch1(
    const uint8_t *frame, int32_t top, int32_t bottom, int32_t left,
    int32_t right, uint32_t distance, int32_t height, int32_t width);

/* One worker's share of calc_quality_with_sub; the fields are passed to
 * calc_quality_with_sub_inner in order. */
typedef struct QualityThreadRecord {
  pthread_t thread;         /* filled by pthread_create */
  const uint8_t *frame;
  int32_t first_row;        /* block rows first_row .. end_row - 1 */
  int32_t end_row;
  const int32_t *rects;     /* 64 rectangles: top, bottom, left, right */
  int64_t *results;         /* 64 block results, row-major */
  const uint8_t *mask;      /* 64 bytes, 1 = measure the block */
  int32_t grid_rows;        /* always 8 */
  int32_t grid_cols;        /* always 8 */
  int32_t height;
  int32_t width;
} QualityThreadRecord;

/* Sharpness figure of a RAW10 frame (unpadded rows, as above) from the 64
 * blocks of an 8 x 8 grid, measured on four threads of its own (two block
 * rows each) with centre weights, folded as (variance / 10000) * sum. All
 * threads are joined before it returns; a block row whose thread failed to
 * start counts as 0. Reentrant.
 * Caller guarantees: as for image_quality_for_raw_10bit_continuous_2. */
QL_IS_API uint64_t calc_quality_with_sub(const uint8_t *frame, uint32_t height,
                                         uint32_t width);

/* Measures block rows first_row .. end_row - 1 (8 columns, whatever
 * grid_cols says) whose mask byte is 1 into results[8 i + j]: the block's
 * metric at distance 1, weighted by the centre pyramid and divided by 400.
 * Returns 1. */
QL_IS_API int32_t calc_quality_with_sub_inner(
    const uint8_t *frame, int32_t first_row, int32_t end_row,
    const int32_t *rects, int64_t *results, const uint8_t *mask,
    int32_t grid_rows, int32_t grid_cols, int32_t height, int32_t width);

/* Thread entry: record is a QualityThreadRecord. Returns NULL. */
QL_IS_API void *quality_pthread(void *record);

/* Single-threaded figure over the 16 central blocks, unweighted: prints
 * each block value and then "sum_quality:<figure>" to standard output (not
 * the log) and returns variance * sum. On return results[0 .. 14] hold 1
 * where the next block measured lower (as unsigned 64-bit values), else 0,
 * and results[15] the last block's value (kept as it always was).
 * Caller guarantees: results holds 16 values; frame as above. */
QL_IS_API uint64_t calc_quality_with_sub_o2(const uint8_t *frame,
                                            int64_t *results, int32_t height,
                                            int32_t width);

/* ------------------------------------------------------------------------
 * Learned frame classifier
 *
 * Decide whether frame A is sharper than frame B:
 *   get_feature_raw_10bitX5_(A...), get_feature_raw_10bitX5_(B...),
 *   combine_feature(fa, fb, d), get_score_label(d) == 1 means A.
 * ------------------------------------------------------------------------ */

/* The model: paramsClass[0] is the bias (negative zero), paramsClass[k + 1]
 * the weight of difference entry k. */
QL_IS_API extern const double paramsClass[98];

/* Fills 320 features of a RAW10 frame from its 1-in-16 subsampled image
 * (byte 4 of each group on lines 3, 7, 11, ...) written to scratch:
 * [0..63] the 8 x 8 block mean gradients, column-major; [64..318] the
 * gradient histogram bins 0..254 and [319] bins 255..510, as fractions.
 * A frame of 1 to 8 subsampled rows or columns (height or width 4..35)
 * has blocks of size 0 and gives NaN features (0/0); otherwise a frame of
 * no subsampled rows or columns (height or width below 4) takes the block
 * size there as -1 and gives zeros of the divisors' sign. extra1 and
 * extra2 are ignored. Returns features.
 * Caller guarantees: features holds 320 doubles; scratch holds
 * (height >> 2) * (width >> 2) bytes; height >= 0, width >= 0 and
 * height rows of `stride` bytes readable. */
QL_IS_API double *get_feature_raw_10bitX5_(const uint8_t *image, int32_t height,
                                           int32_t width, uint32_t stride,
                                           uint32_t extra1, uint32_t extra2,
                                           double *features, uint8_t *scratch);

/* The 97-entry difference vector of two feature vectors: a - b for entries
 * 0..95, and in entry 96 the difference of their sums over 96..319. */
QL_IS_API void combine_feature(const double *a, const double *b,
                               double *difference);

/* Logistic score of a difference vector in single precision; logs the
 * probability as "%1.2f " and returns 1 when it exceeds 0.5, else 0. */
QL_IS_API int32_t get_score_label(const double *difference);

/* Mean gradient (scaled by 1/512) and gradient histogram of a rectangle of
 * a RAW10 frame at the given distance; adds to histogram (256 counters,
 * never cleared). Returns the sample count, or 0 without writing anything
 * when the rectangle is empty.
 * Caller guarantees: 0 <= top, 0 <= left, distance >= 0; the lower
 * neighbour lies 4 * distance lines down, so the frame must be readable
 * that far below the rectangle (only 2 * distance lines are kept clear). */
QL_IS_API int32_t get_sub_raw_feature(double *mean, uint32_t *histogram,
                                      const uint8_t *image, int32_t top,
                                      int32_t bottom, int32_t left,
                                      int32_t right, int32_t distance,
                                      int32_t height, int32_t width,
                                      uint32_t stride);

/* ------------------------------------------------------------------------
 * Score watermark
 * ------------------------------------------------------------------------ */

/* The font: 38 glyphs of 8 rows x 9 cells (1 ink, 0 background), 72 bytes
 * each: '0'..'9', 'A'..'Z' (also for 'a'..'z'), '-', '.'. */
QL_IS_API extern const uint8_t water[38 * 72];

/* Stamps text in white block letters (255), one glyph every 10 * scale
 * pixels from (x, y). A blank repeats the previous glyph (the digit zero
 * before any), other unsupported characters are logged and leave a gap.
 * format 15: the frame is packed RAW10 treated as a byte grid, x counts
 * bytes and pitch is the stride; any other format: pitch is the number of
 * bytes per pixel of a frame `width` pixels wide. rows is ignored.
 * Returns the result of its last log call (not meaningful).
 * Caller guarantees: the whole text fits inside the frame: strlen(text) *
 * 10 * scale pixels (bytes for RAW10) wide and 8 * scale lines tall, and
 * with more than one byte per pixel (scale * pitch) - scale lines more; no
 * bound is checked. */
QL_IS_API int32_t add_water_marking(uint8_t *image, const char *text,
                                    uint32_t rows, uint32_t width, uint32_t x,
                                    uint32_t y, uint32_t scale, uint32_t pitch,
                                    int32_t format);

/* One glyph at pixel (x, y) of a frame of `width` pixels of
 * bytes_per_pixel bytes: each ink cell fills n = scale * bytes_per_pixel
 * bytes on each of n lines, while glyph rows are scale lines apart. */
QL_IS_API void add_water_marking_one(uint8_t *image, uint32_t rows,
                                     uint32_t width, const uint8_t *glyph,
                                     uint32_t x, uint32_t y, uint32_t scale,
                                     uint32_t bytes_per_pixel);

/* One glyph at byte x of line y of a frame of `stride` bytes per line:
 * each ink cell fills scale bytes on scale lines. rows and width are
 * ignored. */
QL_IS_API void add_water_marking_one_raw(uint8_t *image, uint32_t rows,
                                         uint32_t width, const uint8_t *glyph,
                                         uint32_t x, uint32_t y,
                                         uint32_t scale, uint32_t stride);

/* ------------------------------------------------------------------------
 * Dumps and clocks
 * ------------------------------------------------------------------------ */

/* Writes the start of a frame to
 * "<dir><width>X<height>_stride<stride>_fmt<format>_index<%2d index>.yuv",
 * dir "/data/misc/camera/qlas/" for format 10 and "/sdcard/DCIM/qlfd/"
 * otherwise: height * stride bytes for formats 13 and 15, height * width
 * bytes for every other format. Returns 1 when written, 0 for a NULL data
 * pointer or a file that cannot be opened. The directory is not created.
 * Caller guarantees: height, width, stride >= 0 and data holds the bytes
 * written. */
QL_IS_API int32_t save_to_file(const uint8_t *data, int32_t height,
                               int32_t width, int32_t stride, int32_t format,
                               int32_t index);

/* Writes size bytes of data to path; silently does nothing when the file
 * cannot be opened. Caller guarantees: data holds size bytes. */
QL_IS_API void dumpYUV(const uint8_t *data, uint32_t size, const char *path);

/* Writes the local time as "YYYYMMDD-hh-mm-ss-mmm" into dst (at least 24
 * bytes) and returns the number of characters written. */
QL_IS_API int32_t getNowTime(char *dst);

/* Wall-clock time in milliseconds (real-time clock). */
QL_IS_API double now_ms(void);

/* ------------------------------------------------------------------------
 * Host platform layer (not in Android builds)
 *
 * Log lines go to the sink with priority 6, the tag ("QLIS-E", "QLIS-I" or
 * "QLIS_ALGO") and the formatted text. The default sink writes
 * "E/<tag>: <text>" to standard error when the environment variable
 * QLIS_LOG is set and not "0", and drops the line otherwise.
 * Properties: a value set here wins, else the environment variable of the
 * same name, else the property reads as "0".
 * Files: absolute paths the library opens or creates are resolved under
 * the root set here, else under $QLIS_FS_ROOT; with neither they are used
 * as they stand.
 * ------------------------------------------------------------------------ */
#if !defined(__ANDROID__)
typedef void (*ql_is_log_sink)(int prio, const char *tag, const char *text,
                               void *ctx);
/* NULL restores the default sink. */
QL_IS_API void ql_is_host_set_log_sink(ql_is_log_sink sink, void *ctx);
/* value NULL unsets the property. Returns 0 on success, -1 for a NULL name
 * or a value longer than 91 bytes. */
QL_IS_API int ql_is_host_set_property(const char *name, const char *value);
/* NULL or "" removes the root. */
QL_IS_API void ql_is_host_set_fs_root(const char *dir);
#endif

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QL_IS_QL_IS_H */
