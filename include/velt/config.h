// Configuration files of lines "name = value", and the directories of the installation.
//
// A line is cut at 2047 characters and trimmed of space, tab, CR and LF. A blank line, a line whose first
// character is '#', and a line without '=' hold no item. The first '=' ends the name; name and value are
// trimmed again and may be empty. Names are compared byte for byte. There are no sections, quotes, escapes or
// trailing comments.
//
// Threads: every function may be called from any thread at any time. Each look-up opens and reads the file.
//          The environment is read with getenv, so a host must not change it while other threads run.
//
// Errors: only an allocation failure throws. A missing or unreadable file gives the result for "not found".
#ifndef VELT_CONFIG_H
#define VELT_CONFIG_H

#include <iosfwd>
#include <map>
#include <string>

#include "velt/export.h"

// Returns `text` without the leading and trailing characters that occur in `chars`; a copy of `text` when
// `chars` is null or empty.
VELT_EXPORT std::string TrimString(std::string const& text, char const* chars);

// Splits `line` at its first '='. Returns 1 with `name` and `value` set (trimmed, possibly empty); -1 with
// both untouched when there is no '='.
VELT_EXPORT int VeltGetNameValue(std::string const& line, std::string& name, std::string& value);

// Reads one line of `in`. Returns 1 with `name` and `value` set; 2 with both untouched when the line holds no
// item. The text of a line ends at its first NUL. Of a line over 2047 characters the first 2047 are read, and
// the stream is left failed. The look-ups below, too, stop reading after such a line.
VELT_EXPORT int VeltGetLine(std::ifstream& in, std::string& name, std::string& value);

// Removes spaces and tabs at both ends of `text` in place; CR and LF stay. A null or empty text is left
// alone.
VELT_EXPORT void VeltStrTrim(char* text);

// Looks `name` up in `file`; the FIRST line of that name counts.
//
// `len` is the capacity of `buf` in bytes on entry, and the length of the value (without its NUL) on return.
// Returns true with the value in `buf`. Returns false with `len` 0 when an argument is null, the file cannot
// be read, the name is absent, or the value and its NUL do not fit; what `buf` then holds is unspecified, but
// nothing is written past its capacity.
VELT_EXPORT bool VeltGetCfgString(char const* name, char* buf, int& len, char const* file);

// The same for a number: the value is read by strtol in base 10 and cut to int ("10MB" is 10, "ten" is 0).
// Returns false with `value` untouched when VeltGetCfgString would return false for a buffer of 1792 bytes.
VELT_EXPORT bool VeltGetCfgInt(char const* name, int& value, char const* file);

// Adds every item of `file` to `items`; the LAST line of a name counts, and overwrites what the map already
// holds. With a `marker`, takes only names that contain it and keeps the part before its first occurrence
// ("x_level" with "_level" gives "x"). Returns true at once for an empty file name; false with `items`
// untouched when the file cannot be opened; else true, even when reading ended early, after a line over 2047
// characters or at a read error.
VELT_EXPORT bool VeltAllCfgItem(std::map<std::string, std::string>& items, std::string const& file,
                                std::string const& marker);

// APP_ROOT, trimmed, ending in '/'; empty when it is unset or blank.
VELT_EXPORT std::string VeltGetRootPath();

// _APP_LOG_DIR, trimmed, ending in '/'; empty when it is unset or blank.
VELT_EXPORT std::string VeltGetLogPath();

// _APP_TMP_DIR, trimmed, ending in '/'; empty when it is unset or blank.
VELT_EXPORT std::string VeltGetDefaultTempPath();

// VeltGetLogPath() at the first call that finds it not empty. Later calls return the same text until the
// process ends, whatever the environment says.
VELT_EXPORT std::string VeltGetTraceDir();

// VeltGetTraceDir() + "/mrblog/": with a double slash when a log directory is set, "/mrblog/" when none is.
VELT_EXPORT std::string VeltGetDefaultLogPath();

// VeltGetRootPath() + "conf/"; the relative "conf/" when APP_ROOT is unset.
VELT_EXPORT std::string VeltGetDefaultCfgPath();

// The path of the configuration file `file`: APP_ROOT + "/conf/" + file if that exists, else COMMON_LIB_PATH
// + "/conf/" + file, which need not exist. Empty when APP_ROOT is unset (whatever COMMON_LIB_PATH is), or
// when the first does not exist and COMMON_LIB_PATH is unset. Both variables are used untrimmed.
VELT_EXPORT std::string VeltGetConfFullPath(std::string const& file);

// VeltGetConfFullPath of "velt.cfg", "default_debug.cfg" and "ssl".
VELT_EXPORT std::string VeltGetDefaultCfgFile();
VELT_EXPORT std::string VeltGetDefaultDebugCfgFile();
VELT_EXPORT std::string VeltGetDefaultSslPath();

// Replaces each ${NAME} in `text` by the variable's value. A reference to an unset or empty variable, and a
// "${" without "}", stay as they are. References inside a value are not replaced.
VELT_EXPORT std::string VELTreplaceEnvValue(std::string const& text);

// Creates the directory `path` with its parents (mode 0777 less the umask). Returns 0 when something of that
// name, even a plain file, exists in the end. Returns -1 for a null or empty path, for a path that contains
// '$', for a path over 1007 characters that does not exist, and when the directory could not be created. No
// shell is run.
VELT_EXPORT int VeltMakeDirEx(char const* path);

#endif
