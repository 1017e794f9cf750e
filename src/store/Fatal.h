#pragma once

#include <QString>

// Programming errors that must never reach the user as undefined behaviour:
// print one clear line on stderr and abort.
[[noreturn]] void fatalError(const QString& message);
