// The floor that loading a catalogue is measured against: a bare simdjson parse that reads the fields that become
// columns of every record, and a bare SQLite insert of the rows the store will hold, through one prepared statement in
// one transaction into a file with SQLite's default journal. No records, no objects, no merges.
#pragma once

#include "catalogue/HomebrewCask.h"
#include "catalogue/HomebrewFormula.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <algorithm>
#include <array>
#include <optional>
#include <simdjson.h>
#include <span>
#include <sqlite3.h>
#include <string_view>
#include <vector>

namespace CatalogueReference {

// One row as the store keeps a formula or a cask; absent values stay NULL.
struct PackageRow {
    QByteArray token;
    QByteArray name;
    std::optional<QByteArray> tap;
    std::optional<QByteArray> desc;
    std::optional<QByteArray> website;
    std::optional<QByteArray> license;
    std::optional<QByteArray> version;
    std::optional<QByteArray> artifacts;
};

inline std::optional<QByteArray> utf8(const std::optional<QString>& text)
{
    return text ? std::optional<QByteArray>(text->toUtf8()) : std::nullopt;
}

// The rows of decoded records, so that the insert sees the lengths the store will.
inline std::vector<PackageRow> rowsOf(const std::vector<Homebrew::Formula>& formulae,
                                      const std::vector<Homebrew::Cask>& casks)
{
    std::vector<PackageRow> rows;
    rows.reserve(formulae.size() + casks.size());
    for (const Homebrew::Formula& formula : formulae) {
        rows.push_back({formula.token.toUtf8(), formula.name.toUtf8(), utf8(formula.tap), utf8(formula.desc),
                        formula.website ? std::optional(formula.website->toEncoded()) : std::nullopt,
                        formula.license ? std::optional(formula.license->toUtf8()) : std::nullopt, std::nullopt,
                        std::nullopt});
    }
    for (const Homebrew::Cask& cask : casks) {
        const std::optional<QStringList> artifactTypes = cask.artifactTypes();
        rows.push_back({cask.token.toUtf8(), cask.displayName().toUtf8(), utf8(cask.tap), utf8(cask.desc),
                        cask.website ? std::optional(cask.website->toEncoded()) : std::nullopt, std::nullopt,
                        utf8(cask.version),
                        artifactTypes ? std::optional(artifactTypes->join(u',').toUtf8()) : std::nullopt});
    }
    return rows;
}

// Reads one field that becomes a column: a string whole, the strings of a list (a cask's name parts), the type key
// of each object in a list (a cask's artifact stanzas). Other values (numbers, licence objects) are skipped as the
// decoder skips them.
inline simdjson::error_code readColumn(simdjson::ondemand::value value, std::size_t& total)
{
    namespace ondemand = simdjson::ondemand;
    ondemand::json_type type;
    if (const auto error = value.type().get(type)) {
        return error;
    }
    if (type == ondemand::json_type::string) {
        std::string_view text;
        if (const auto error = value.get_string().get(text)) {
            return error;
        }
        total += text.size();
        return simdjson::SUCCESS;
    }
    if (type != ondemand::json_type::array) {
        return simdjson::SUCCESS;
    }
    ondemand::array elements;
    if (const auto error = value.get_array().get(elements)) {
        return error;
    }
    for (auto element : elements) {
        ondemand::value item;
        ondemand::json_type itemType;
        if (const auto error = element.get(item)) {
            return error;
        }
        if (const auto error = item.type().get(itemType)) {
            return error;
        }
        if (itemType == ondemand::json_type::object) {
            ondemand::object stanza;
            if (const auto error = item.get_object().get(stanza)) {
                return error;
            }
            for (auto field : stanza) {
                std::string_view key;
                if (const auto error = field.unescaped_key().get(key)) {
                    return error;
                }
                total += key.size();
                break;
            }
        } else if (itemType == ondemand::json_type::string) {
            std::string_view text;
            if (const auto error = item.get_string().get(text)) {
                return error;
            }
            total += text.size();
        }
    }
    return simdjson::SUCCESS;
}

// Parses a catalogue array and reads, of every record, each field that becomes one of the store's columns, so that
// the parser does the reading a decoder must do. json must have simdjson's padding spare behind its end. The
// number of records, or none when the text does not parse.
inline std::optional<std::size_t> bareParse(simdjson::ondemand::parser& parser, const QByteArray& json,
                                            std::span<const std::string_view> columns, std::size_t& total)
{
    namespace ondemand = simdjson::ondemand;
    if (json.capacity() - json.size() < qsizetype(simdjson::SIMDJSON_PADDING)) {
        return std::nullopt;
    }
    const simdjson::padded_string_view text(json.constData(), std::size_t(json.size()), std::size_t(json.capacity()));
    ondemand::document document;
    ondemand::array records;
    if (parser.iterate(text).get(document) || document.get_array().get(records)) {
        return std::nullopt;
    }
    std::size_t count = 0;
    for (auto element : records) {
        ondemand::object record;
        if (element.get_object().get(record)) {
            return std::nullopt;
        }
        for (auto field : record) {
            std::string_view key;
            ondemand::value value;
            if (field.unescaped_key().get(key) || field.value().get(value)) {
                return std::nullopt;
            }
            if (std::find(columns.begin(), columns.end(), key) != columns.end() && readColumn(value, total)) {
                return std::nullopt;
            }
        }
        ++count;
    }
    return count;
}

// The fields of each catalogue that become columns.
inline constexpr std::array<std::string_view, 6> formulaColumns{"name", "full_name", "tap",
                                                                "desc", "homepage",  "license"};
inline constexpr std::array<std::string_view, 7> caskColumns{"token",    "name",      "tap",      "desc",
                                                             "homepage", "installed", "artifacts"};

// A new database file at path with one table of package rows; null with the reason in error on failure.
inline sqlite3* createBareDatabase(const QString& path, QString& error)
{
    QFile::remove(path);
    sqlite3* database = nullptr;
    if (sqlite3_open(QFile::encodeName(path).constData(), &database) != SQLITE_OK ||
        sqlite3_exec(database,
                     "CREATE TABLE package (token TEXT NOT NULL, name TEXT NOT NULL, tap TEXT, desc TEXT, "
                     "website TEXT, license TEXT, version TEXT, artifacts TEXT)",
                     nullptr, nullptr, nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(database));
        sqlite3_close(database);
        return nullptr;
    }
    return database;
}

inline void bindText(sqlite3_stmt* statement, int column, const std::optional<QByteArray>& text)
{
    if (text) {
        sqlite3_bind_text(statement, column, text->constData(), int(text->size()), SQLITE_STATIC);
    } else {
        sqlite3_bind_null(statement, column);
    }
}

// Every row in one transaction through one prepared statement; false with the reason in error on failure.
inline bool insertRows(sqlite3* database, const std::vector<PackageRow>& rows, QString& error)
{
    sqlite3_stmt* statement = nullptr;
    bool failed = sqlite3_exec(database, "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK ||
                  sqlite3_prepare_v2(database, "INSERT INTO package VALUES (?, ?, ?, ?, ?, ?, ?, ?)", -1, &statement,
                                     nullptr) != SQLITE_OK;
    for (std::size_t i = 0; !failed && i < rows.size(); ++i) {
        const PackageRow& row = rows[i];
        sqlite3_bind_text(statement, 1, row.token.constData(), int(row.token.size()), SQLITE_STATIC);
        sqlite3_bind_text(statement, 2, row.name.constData(), int(row.name.size()), SQLITE_STATIC);
        bindText(statement, 3, row.tap);
        bindText(statement, 4, row.desc);
        bindText(statement, 5, row.website);
        bindText(statement, 6, row.license);
        bindText(statement, 7, row.version);
        bindText(statement, 8, row.artifacts);
        failed = sqlite3_step(statement) != SQLITE_DONE || sqlite3_reset(statement) != SQLITE_OK;
    }
    sqlite3_finalize(statement);
    failed = failed || sqlite3_exec(database, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK;
    if (failed) {
        error = QString::fromUtf8(sqlite3_errmsg(database));
    }
    return !failed;
}

} // namespace CatalogueReference
