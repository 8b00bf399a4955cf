#ifndef DIAG_GLOBAL_LOGGER_H_
#define DIAG_GLOBAL_LOGGER_H_

class Logger;

/// The logger in use; null while logging is off. Set once, before any other thread runs. For the
/// dispatcher, which hands it to the operations, and for the SDK's callbacks; everybody else is
/// given the pointer.
extern Logger* logger;

#endif  // DIAG_GLOBAL_LOGGER_H_
