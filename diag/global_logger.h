#ifndef DIAG_GLOBAL_LOGGER_H_
#define DIAG_GLOBAL_LOGGER_H_

class Logger;

/// The logger in use; null while logging is off. Set once, before any other thread runs. Only the
/// dispatcher, which passes it to the operations, and the SDK's callbacks use it directly.
extern Logger* logger;

#endif  // DIAG_GLOBAL_LOGGER_H_
