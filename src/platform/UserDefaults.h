#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

struct sqlite3;

namespace qm {

// Per-user settings by key (NSUserDefaults), kept in an SQLite file.
//
// Every set or remove is its own transaction, committed before the call returns: the file is in
// WAL mode with synchronous=FULL, so a commit is on disk when it returns and any other instance on
// the same file (in this process or another) reads it at once. Reads go to the file, so there is
// no cache to go stale; synchronize is therefore only a report.
//
// A value read as another type than it was stored reads as missing, except that integer, double
// and bool convert among themselves. A file that is not a database, or a damaged one, is moved
// aside to "<path>.damaged-<n>" and reported in one log line; the defaults then start empty in a
// fresh file (or in memory only, if no fresh file can be made). Thread-safe.
class UserDefaults {
public:
    // A dictionary of settings: flat, each value a bool, an integer, a double, text or bytes.
    using Value = std::variant<bool, int64_t, double, std::string, std::vector<uint8_t>>;
    using Dictionary = std::map<std::string, Value>;

    // The process's defaults: $XDG_CONFIG_HOME/<Bundle::identifier()>/defaults.sqlite3, with the
    // directory made if needed. The path is fixed at the first call.
    static UserDefaults& standardUserDefaults();
    // Defaults on an explicit file, made if it does not exist. Never nullptr.
    static std::shared_ptr<UserDefaults> createWithPath(const std::string& path);

    ~UserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    // The file, even when running in memory after it could not be opened.
    const std::string& path() const { return _path; }

    // True when a value of any type is stored under `key` (objectForKey: is not nil).
    bool containsValueForKey(const std::string& key) const;
    std::optional<std::vector<uint8_t>> dataForKey(const std::string& key) const;
    std::optional<std::string> stringForKey(const std::string& key) const;
    // 0 when missing. A double is truncated toward zero (saturating).
    int64_t integerForKey(const std::string& key) const;
    // 0 when missing.
    double doubleForKey(const std::string& key) const;
    // false when missing; a number is true when it is not 0.
    bool boolForKey(const std::string& key) const;
    // The dictionary stored under `key`, or nothing.
    std::optional<Dictionary> dictionaryForKey(const std::string& key) const;

    void setData(const std::vector<uint8_t>& value, const std::string& key);
    void setString(const std::string& value, const std::string& key);
    void setInteger(int64_t value, const std::string& key);
    void setDouble(double value, const std::string& key);
    void setBool(bool value, const std::string& key);
    void setDictionary(const Dictionary& value, const std::string& key);
    void removeObjectForKey(const std::string& key);

    // True when the defaults are kept on disk and the last write succeeded.
    bool synchronize() const;

private:
    enum class Type : int { data = 1, string = 2, integer = 3, real = 4, boolean = 5, dictionary = 6 };
    struct Stored;

    explicit UserDefaults(std::string path);
    void open();
    std::optional<std::string> openFile(bool& damaged);
    void closeDatabase();
    std::optional<Stored> read(const std::string& key) const;
    std::optional<double> number(const std::string& key) const;
    // Binds the value with `bind`, as sqlite3_bind_* on parameter 3.
    template <class Bind>
    void write(const std::string& key, Type type, Bind bind);

    const std::string _path;
    mutable std::mutex _mutex;
    sqlite3* _db = nullptr;
    bool _onDisk = false;
    bool _lastWriteFailed = false;
};

}  // namespace qm
