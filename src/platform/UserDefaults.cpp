#include "platform/UserDefaults.h"

#include <sqlite3.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <type_traits>

#include <nlohmann/json.hpp>

#include "platform/Log.h"
#include "platform/Paths.h"

namespace qm {

namespace {

// Finalises a prepared statement when it goes out of scope.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) {
        if (db) sqlite3_prepare_v2(db, sql, -1, &_statement, nullptr);
    }
    ~Statement() { sqlite3_finalize(_statement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    sqlite3_stmt* get() const { return _statement; }
    explicit operator bool() const { return _statement != nullptr; }

private:
    sqlite3_stmt* _statement = nullptr;
};

bool isDamage(int code) {
    const int primary = code & 0xff;
    return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
}

// The first free name "<path>.damaged-<n>".
std::string asideName(const std::string& path) {
    std::error_code error;
    for (int n = 1;; ++n) {
        std::string candidate = path + ".damaged-" + std::to_string(n);
        if (!std::filesystem::exists(candidate, error)) return candidate;
    }
}

}  // namespace

struct UserDefaults::Stored {
    Type type;
    std::vector<uint8_t> bytes;
    std::string text;
    int64_t integer = 0;
    double real = 0;
};

UserDefaults& UserDefaults::standardUserDefaults() {
    static const std::shared_ptr<UserDefaults> shared = [] {
        const std::string directory = Paths::configHome() + "/" + Bundle::identifier();
        Paths::createDirectories(directory);
        return createWithPath(directory + "/defaults.sqlite3");
    }();
    return *shared;
}

std::shared_ptr<UserDefaults> UserDefaults::createWithPath(const std::string& path) {
    std::shared_ptr<UserDefaults> defaults(new UserDefaults(path));
    defaults->open();
    return defaults;
}

UserDefaults::UserDefaults(std::string path) : _path(std::move(path)) {}

UserDefaults::~UserDefaults() { closeDatabase(); }

void UserDefaults::closeDatabase() {
    sqlite3_close(_db);
    _db = nullptr;
}

// Opens and checks the file. Gives the reason on failure, with `damaged` set when the file is
// not a sound database (as opposed to one that cannot be opened at all).
std::optional<std::string> UserDefaults::openFile(bool& damaged) {
    damaged = false;
    int code = sqlite3_open_v2(_path.c_str(), &_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                               nullptr);
    if (code == SQLITE_OK) {
        sqlite3_busy_timeout(_db, 5000);
        for (const char* sql : {"PRAGMA journal_mode=WAL", "PRAGMA synchronous=FULL"}) {
            if ((code = sqlite3_exec(_db, sql, nullptr, nullptr, nullptr)) != SQLITE_OK) break;
        }
    }
    if (code == SQLITE_OK) {
        Statement check(_db, "PRAGMA quick_check");
        code = check ? sqlite3_step(check.get()) : sqlite3_errcode(_db);
        if (code == SQLITE_ROW) {
            const auto* result = reinterpret_cast<const char*>(sqlite3_column_text(check.get(), 0));
            if (!result || std::string(result) != "ok") {
                damaged = true;
                return "integrity check: " + std::string(result ? result : "no answer");
            }
            code = SQLITE_OK;
        }
    }
    if (code == SQLITE_OK) {
        code = sqlite3_exec(_db, "CREATE TABLE IF NOT EXISTS defaults (key TEXT PRIMARY KEY NOT NULL, type INTEGER NOT NULL, value)",
                            nullptr, nullptr, nullptr);
    }
    if (code == SQLITE_OK) return std::nullopt;
    damaged = isDamage(code);
    return std::string(_db ? sqlite3_errmsg(_db) : sqlite3_errstr(code));
}

void UserDefaults::open() {
    bool damaged = false;
    const auto failure = openFile(damaged);
    if (!failure) {
        _onDisk = true;
        return;
    }
    closeDatabase();

    std::string outcome;
    if (damaged) {
        const std::string aside = asideName(_path);
        if (std::rename(_path.c_str(), aside.c_str()) == 0) {
            for (const char* suffix : {"-wal", "-shm", "-journal"}) {
                std::rename((_path + suffix).c_str(), (aside + suffix).c_str());
            }
            bool freshDamaged = false;
            const auto freshFailure = openFile(freshDamaged);
            if (!freshFailure) {
                _onDisk = true;
                QMLog("Error: user defaults %s are damaged (%s); moved to %s, starting empty", _path.c_str(),
                      failure->c_str(), aside.c_str());
                return;
            }
            closeDatabase();
            outcome = "moved to " + aside + ", starting empty in memory (" + *freshFailure + ")";
        } else {
            outcome = "could not move them aside, starting empty in memory";
        }
        QMLog("Error: user defaults %s are damaged (%s); %s", _path.c_str(), failure->c_str(), outcome.c_str());
    } else {
        QMLog("Error: can not open user defaults %s (%s); starting empty in memory", _path.c_str(), failure->c_str());
    }
    sqlite3_open_v2(":memory:", &_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    sqlite3_exec(_db, "CREATE TABLE defaults (key TEXT PRIMARY KEY NOT NULL, type INTEGER NOT NULL, value)", nullptr,
                 nullptr, nullptr);
}

std::optional<UserDefaults::Stored> UserDefaults::read(const std::string& key) const {
    std::lock_guard<std::mutex> lock(_mutex);
    Statement select(_db, "SELECT type, value FROM defaults WHERE key = ?1");
    if (!select) return std::nullopt;
    sqlite3_bind_text(select.get(), 1, key.data(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
    const int code = sqlite3_step(select.get());
    if (code != SQLITE_ROW) {
        if (code != SQLITE_DONE) QMLog("Error: can not read user default %s: %s", key.c_str(), sqlite3_errmsg(_db));
        return std::nullopt;
    }
    sqlite3_stmt* row = select.get();
    Stored stored{static_cast<Type>(sqlite3_column_int(row, 0)), {}, {}, 0, 0};
    switch (stored.type) {
        case Type::data:
        case Type::dictionary: {
            const auto* bytes = static_cast<const uint8_t*>(sqlite3_column_blob(row, 1));
            stored.bytes.assign(bytes, bytes + (bytes ? sqlite3_column_bytes(row, 1) : 0));
            break;
        }
        case Type::string: {
            const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, 1));
            stored.text.assign(text ? text : "", text ? sqlite3_column_bytes(row, 1) : 0);
            break;
        }
        case Type::integer:
        case Type::boolean: stored.integer = sqlite3_column_int64(row, 1); break;
        case Type::real: stored.real = sqlite3_column_double(row, 1); break;
        default: return std::nullopt;
    }
    return stored;
}

std::optional<double> UserDefaults::number(const std::string& key) const {
    const auto stored = read(key);
    if (!stored) return std::nullopt;
    switch (stored->type) {
        case Type::integer:
        case Type::boolean: return static_cast<double>(stored->integer);
        case Type::real: return stored->real;
        default: return std::nullopt;
    }
}

template <class Bind>
void UserDefaults::write(const std::string& key, Type type, Bind bind) {
    std::lock_guard<std::mutex> lock(_mutex);
    Statement insert(_db, "INSERT OR REPLACE INTO defaults (key, type, value) VALUES (?1, ?2, ?3)");
    int code = sqlite3_errcode(_db);
    if (insert) {
        sqlite3_bind_text(insert.get(), 1, key.data(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
        sqlite3_bind_int(insert.get(), 2, static_cast<int>(type));
        bind(insert.get());
        code = sqlite3_step(insert.get());
    }
    _lastWriteFailed = code != SQLITE_DONE;
    if (_lastWriteFailed) QMLog("Error: can not write user default %s: %s", key.c_str(), sqlite3_errmsg(_db));
}

bool UserDefaults::containsValueForKey(const std::string& key) const { return read(key).has_value(); }

std::optional<std::vector<uint8_t>> UserDefaults::dataForKey(const std::string& key) const {
    auto stored = read(key);
    if (!stored || stored->type != Type::data) return std::nullopt;
    return std::move(stored->bytes);
}

std::optional<std::string> UserDefaults::stringForKey(const std::string& key) const {
    auto stored = read(key);
    if (!stored || stored->type != Type::string) return std::nullopt;
    return std::move(stored->text);
}

int64_t UserDefaults::integerForKey(const std::string& key) const {
    const auto stored = read(key);
    if (!stored) return 0;
    if (stored->type == Type::integer || stored->type == Type::boolean) return stored->integer;
    if (stored->type != Type::real || std::isnan(stored->real)) return 0;
    if (stored->real >= 9223372036854775808.0) return INT64_MAX;
    if (stored->real < -9223372036854775808.0) return INT64_MIN;
    return static_cast<int64_t>(stored->real);
}

double UserDefaults::doubleForKey(const std::string& key) const { return number(key).value_or(0.0); }

bool UserDefaults::boolForKey(const std::string& key) const { return number(key).value_or(0.0) != 0; }

std::optional<UserDefaults::Dictionary> UserDefaults::dictionaryForKey(const std::string& key) const {
    const auto stored = read(key);
    if (!stored || stored->type != Type::dictionary) return std::nullopt;
    const nlohmann::json object = nlohmann::json::from_cbor(stored->bytes, true, false);
    if (!object.is_object()) return std::nullopt;
    Dictionary dictionary;
    for (const auto& [name, value] : object.items()) {
        if (value.is_boolean()) dictionary[name] = value.get<bool>();
        else if (value.is_number_integer()) dictionary[name] = value.get<int64_t>();
        else if (value.is_number_float()) dictionary[name] = value.get<double>();
        else if (value.is_string()) dictionary[name] = value.get<std::string>();
        else if (value.is_binary()) dictionary[name] = std::vector<uint8_t>(value.get_binary());
    }
    return dictionary;
}

void UserDefaults::setData(const std::vector<uint8_t>& value, const std::string& key) {
    write(key, Type::data, [&value](sqlite3_stmt* statement) {
        sqlite3_bind_blob64(statement, 3, value.data(), value.size(), SQLITE_TRANSIENT);
    });
}

void UserDefaults::setString(const std::string& value, const std::string& key) {
    write(key, Type::string, [&value](sqlite3_stmt* statement) {
        sqlite3_bind_text64(statement, 3, value.data(), value.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    });
}

void UserDefaults::setInteger(int64_t value, const std::string& key) {
    write(key, Type::integer, [value](sqlite3_stmt* statement) { sqlite3_bind_int64(statement, 3, value); });
}

void UserDefaults::setDouble(double value, const std::string& key) {
    write(key, Type::real, [value](sqlite3_stmt* statement) { sqlite3_bind_double(statement, 3, value); });
}

void UserDefaults::setBool(bool value, const std::string& key) {
    write(key, Type::boolean, [value](sqlite3_stmt* statement) { sqlite3_bind_int64(statement, 3, value ? 1 : 0); });
}

void UserDefaults::setDictionary(const Dictionary& value, const std::string& key) {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [name, entry] : value) {
        std::visit(
            [&object, &name](const auto& v) {
                if constexpr (std::is_same_v<std::decay_t<decltype(v)>, std::vector<uint8_t>>)
                    object[name] = nlohmann::json::binary(v);
                else object[name] = v;
            },
            entry);
    }
    const std::vector<uint8_t> bytes = nlohmann::json::to_cbor(object);
    write(key, Type::dictionary, [&bytes](sqlite3_stmt* statement) {
        sqlite3_bind_blob64(statement, 3, bytes.data(), bytes.size(), SQLITE_TRANSIENT);
    });
}

void UserDefaults::removeObjectForKey(const std::string& key) {
    std::lock_guard<std::mutex> lock(_mutex);
    Statement remove(_db, "DELETE FROM defaults WHERE key = ?1");
    int code = sqlite3_errcode(_db);
    if (remove) {
        sqlite3_bind_text(remove.get(), 1, key.data(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
        code = sqlite3_step(remove.get());
    }
    _lastWriteFailed = code != SQLITE_DONE;
    if (_lastWriteFailed) QMLog("Error: can not remove user default %s: %s", key.c_str(), sqlite3_errmsg(_db));
}

bool UserDefaults::synchronize() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _onDisk && !_lastWriteFailed;
}

}  // namespace qm
