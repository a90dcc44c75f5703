// The log of the process. All diagnostics are lines on standard error: those of base::log, the level lines below, and
// whatever libraries say. setLogFile puts a pipe in standard error's place, and what arrives there is brought to a file
// that is turned over at 10,485,760 bytes (Name.log becomes Name.old.log). Nobody who logs ever waits for the file; a
// file that can't be written costs lines, never work, and the lines that it cost are counted in it later.
//
// State of the class; any thread, save setLogFile, which comes before other threads run. The file may be shared by
// several processes, and may be renamed or removed from outside.
#pragma once

#include "base/Path.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string_view>

class Logger {
public:
    /// Lines with the time and the label of the queue in front: always, from level 1, from level 2. In order among
    /// themselves.
    static void setError(std::string_view message);
    static void setDebug(std::string_view message);
    static void setVerbose(std::string_view message);

    static long logLevel();
    static void setLogLevel(long level);

    /// The process's name with the extension "log" in the folder of logs of this user and system.
    static base::URL defaultLogFileVELM();
    /// The same in the folder for the logs of all programs, in whose subfolder "Velm" the former stands.
    static base::URL defaultLogFile();
    static base::URL defaultLogFileWithinSubdirectory(std::string_view subdirectory);

    /// The file that standard error goes to; nothing before setLogFile.
    static std::optional<base::URL> logFile();
    /// Turns standard error to the file, by default to defaultLogFile(). When there can be no pipe, standard error
    /// stays where it is. Also sees to it that what was logged reaches the file when the process ends by exit(), by an
    /// abort, a fault or a signal that would end it; at a fault the last lines go to the first standard error too.
    static void setLogFile(std::optional<base::URL> url);

    /// A descriptor of what was standard error before the first setLogFile: for what a person at the terminal must see.
    static int firstStandardError();

    /// Called once, on a thread of the logger's own, with the reason when the file can't be written. Set it before
    /// setLogFile.
    static void setFailureBlock(std::function<void(std::string_view reason)> block);

    /// Brings all that was logged so far to the file before it returns, unless the file can't be written or takes
    /// nothing for as long as the limit. For those who are about to end the process by _exit.
    static bool drain(std::chrono::nanoseconds limit = std::chrono::seconds(1));
};
