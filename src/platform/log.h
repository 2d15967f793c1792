// Log lines of the library. Every line goes out at priority 6 (error),
// whatever its content, under one of three tags.
#pragma once

namespace qlis {

inline constexpr int kLogPriority = 6;
inline constexpr const char *kTagError = "QLIS-E";  // errors and decisions
inline constexpr const char *kTagInfo = "QLIS-I";   // dump traces, scores
inline constexpr const char *kTagAlgo = "QLIS_ALGO";  // algorithm traces

// printf-style; the text is handed on without an added newline. Returns
// what the platform's log call returns (on Android the log writer's result,
// on the host the length of the formatted text); a few exported functions
// pass that on as their own result.
int log_line(const char *tag, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

}  // namespace qlis
