// Configuration files of lines "name = value", and the directories of the installation.
//
// A line is cut at 2047 characters and trimmed of space, tab, CR and LF. A blank line, a line whose first
// character is '#', and a line without '=' hold no item. The first '=' ends the name; name and value are
// trimmed again and may be empty. Names are compared byte for byte. There are no sections, quotes, escapes or
// trailing comments.
//
// Threads: every function may be called from any thread at any time; each look-up opens and reads the file
// anew.
//          The environment is read with getenv, so a host must not change it while other threads run.
// Errors:  nothing throws but an allocation failure; a missing or unreadable file is an ordinary negative
// answer.
#ifndef VELT_CONFIG_H
#define VELT_CONFIG_H

#include <fstream>
#include <map>
#include <string>

#include "velt/export.h"

// Returns `text` without the leading and trailing characters that occur in `chars`; a copy of `text` when
// `chars` is null or empty.
VELT_EXPORT std::string TrimString(std::string const& text, char const* chars);

// Splits `line` at its first '='. Returns 1 with `name` and `value` set (trimmed, possibly empty); -1 with
// both untouched when there is no '='.
VELT_EXPORT int VeltGetNameValue(std::string const& line, std::string& name, std::string& value);

// Reads one line of `in`. Returns 1 with `name` and `value` set, 2 with both untouched when the line holds no
// item. The text of a line ends at its first NUL. A line over 2047 characters gives its first 2047 and leaves
// the stream failed, which ends every scan of this library after that line.
VELT_EXPORT int VeltGetLine(std::ifstream& in, std::string& name, std::string& value);

// Removes spaces and tabs at both ends of `text` in place; CR and LF stay. Null and empty are left as they
// are.
VELT_EXPORT void VeltStrTrim(char* text);

// Looks `name` up in `file`; the FIRST line of that name counts.
//
// `len` is the capacity of `buf` in bytes on entry, and the length of the value (without its NUL) on return.
// Returns true with the value in `buf`. Returns false with `len` 0 when an argument is null, the file cannot
// be read, the name is absent, or the value and its NUL do not fit; `buf` is then unspecified but never
// overrun.
VELT_EXPORT bool VeltGetCfgString(char const* name, char* buf, int& len, char const* file);

// The same for a number: strtol's reading of the value in base 10, cut to int ("10MB" is 10, "ten" is 0).
// Returns false with `value` untouched when VeltGetCfgString would, for a value of at most 1791 characters.
VELT_EXPORT bool VeltGetCfgInt(char const* name, int& value, char const* file);

// Adds every item of `file` to `items`; the LAST line of a name counts, and overwrites what the map already
// holds. With a `marker`, takes only names that contain it and keeps the part before its first occurrence
// ("x_level" with "_level" gives "x"). Returns true at once for an empty file name; false with `items`
// untouched when the file cannot be opened; else true, also when the scan ended early at an over-long line
// or a read error.
VELT_EXPORT bool VeltAllCfgItem(std::map<std::string, std::string>& items, std::string const& file,
                                std::string const& marker);

// APP_ROOT, trimmed, ending in '/'; empty when it is unset or blank.
VELT_EXPORT std::string VeltGetRootPath();

// _APP_LOG_DIR, trimmed, ending in '/'; empty when it is unset or blank.
VELT_EXPORT std::string VeltGetLogPath();

// _APP_TMP_DIR, trimmed, ending in '/'; empty when it is unset or blank.
VELT_EXPORT std::string VeltGetDefaultTempPath();

// VeltGetLogPath() as it was when it first was not empty; fixed from then on for the life of the process.
VELT_EXPORT std::string VeltGetTraceDir();

// VeltGetTraceDir() + "/mrblog/": with a double slash when a log directory is set, "/mrblog/" when none is.
VELT_EXPORT std::string VeltGetDefaultLogPath();

// VeltGetRootPath() + "conf/"; the relative "conf/" when APP_ROOT is unset.
VELT_EXPORT std::string VeltGetDefaultCfgPath();

// Where the configuration file `file` is: APP_ROOT + "/conf/" + file when that exists, else
// COMMON_LIB_PATH + "/conf/" + file unchecked. Empty when APP_ROOT is unset (COMMON_LIB_PATH is then not
// looked at), or when the first does not exist and COMMON_LIB_PATH is unset. Both variables are used
// untrimmed.
VELT_EXPORT std::string VeltGetConfFullPath(std::string const& file);

// VeltGetConfFullPath of "velt.cfg", "default_debug.cfg" and "ssl".
VELT_EXPORT std::string VeltGetDefaultCfgFile();
VELT_EXPORT std::string VeltGetDefaultDebugCfgFile();
VELT_EXPORT std::string VeltGetDefaultSslPath();

// Replaces each ${NAME} in `text` by the variable's value. A reference to an unset or empty variable, and a
// "${" without "}", stay as they are; what was put in is not scanned again.
VELT_EXPORT std::string VELTreplaceEnvValue(std::string const& text);

// Creates the directory `path` with its parents (mode 0777 less the umask). Returns 0 when something of that
// name exists at the end, a plain file included. Returns -1 for a null or empty path, for one that contains
// '$' or has more than 1007 characters and does not exist yet, and when it could not be created. No shell is
// run.
VELT_EXPORT int VeltMakeDirEx(char const* path);

#endif
