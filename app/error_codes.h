#ifndef APP_ERROR_CODES_H_
#define APP_ERROR_CODES_H_

/// The numbers that operations return, which are the tool's exit statuses. They are the errno
/// numbers of macOS on every host; the names are those of `<cerrno>` with the prefix `k`.

inline constexpr int kSuccess = 0;
inline constexpr int kENOENT = 2;      ///< not found
inline constexpr int kESRCH = 3;       ///< an answer that cannot be used
inline constexpr int kEBADF = 9;       ///< a bad agent configuration file; ends no run
inline constexpr int kENOMEM = 12;     ///< no memory for the tool object
inline constexpr int kEACCES = 13;     ///< no SDK instance, or a file that cannot be deleted
inline constexpr int kEFAULT = 14;     ///< an SDK export is missing
inline constexpr int kEBUSY = 16;      ///< the product is already present
inline constexpr int kENOTDIR = 20;    ///< the product is not installed
inline constexpr int kEINVAL = 22;     ///< bad arguments, or a library not signed by the vendor
inline constexpr int kEAGAIN = 35;     ///< a library that cannot be loaded
inline constexpr int kENOTSUP = 45;    ///< the SDK refused to register or to run
inline constexpr int kETIMEDOUT = 60;  ///< no answer in time

/// The product's number for an unusable answer, reported as the error of an SDK method.
inline constexpr int kUnusableAnswer = 3;
/// The product's own number for a scan that could not be started or run.
inline constexpr int kScanFailed = 5023;

#endif  // APP_ERROR_CODES_H_
