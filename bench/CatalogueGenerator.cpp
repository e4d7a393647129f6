#include "CatalogueGenerator.h"

#include <QDir>
#include <QFile>
#include <QStringList>
#include <array>
#include <memory>
#include <random>
#include <simdjson.h>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace {

namespace dom = simdjson::dom;
namespace ondemand = simdjson::ondemand;

enum GeneratorErrorCode { seedUnreadable = 1, fileUnwritable, catalogueInvalid };

Error generatorError(GeneratorErrorCode code, const QString& description)
{
    return Error(QStringLiteral("CatalogueGenerator"), code, description);
}

// The platforms a current bottle is built for; the seed records date from when there were two or three.
constexpr std::array<std::string_view, 9> bottlePlatforms = {"arm64_tahoe",   "arm64_sequoia", "arm64_sonoma",
                                                             "arm64_ventura", "sequoia",       "sonoma",
                                                             "ventura",       "arm64_linux",   "x86_64_linux"};

constexpr std::array<std::string_view, 36> syllables = {"ba",  "ker", "lo",  "mi",  "zen", "tra", "qua", "vo",  "nix",
                                                        "pel", "ro",  "sta", "fi",  "gle", "dor", "an",  "ex",  "cu",
                                                        "lin", "ma",  "so",  "tek", "yu",  "pha", "rin", "del", "go",
                                                        "hy",  "ja",  "wes", "or",  "ti",  "bro", "cal", "fen", "zu"};

constexpr std::array<std::string_view, 14> formulaSuffixes = {"",     "",       "",   "",        "",      "",    "",
                                                              "-cli", "-utils", "@3", "-server", "-lite", "-ng", "-rs"};

constexpr std::array<std::string_view, 14> caskSuffixes = {
    "", "", "", "", "", "", "", "-app", "-beta", "@nightly", "-desktop", "-pro", "-cn", "-dev"};

// Real casks carry names like these; the search folds them, so the load must hold some.
constexpr std::array<std::string_view, 14> unicodeFragments = {
    "Übersicht",  "Café",  "音乐",   "网易有道翻译", "Ångström", "Москва", "Ελληνικά",
    "日本語入力", "Señor", "Zürich", "한글",         "Ærø",      "Łódź",   "Straße"};

// std::mt19937's sequence is fixed by the standard, unlike the distributions, so the files match on every library.
class Random {
public:
    explicit Random(quint32 seed)
        : m_engine(seed)
    {}

    std::size_t below(std::size_t bound) { return m_engine() % bound; }
    bool oneIn(std::size_t odds) { return below(odds) == 0; }

    template <class Container>
    auto pick(const Container& items)
    {
        return items[below(items.size())];
    }

private:
    std::mt19937 m_engine;
};

class TokenMaker {
public:
    std::string make(Random& random, std::span<const std::string_view> suffixes)
    {
        std::string stem;
        const std::size_t count = 2 + random.below(2);
        for (std::size_t i = 0; i < count; ++i) {
            stem += random.pick(syllables);
        }
        const std::string_view suffix = suffixes[random.below(suffixes.size())];
        std::string token = stem + std::string(suffix);
        for (int n = 2; !m_used.insert(token).second; ++n) {
            token = stem + std::to_string(n) + std::string(suffix);
        }
        return token;
    }

private:
    std::unordered_set<std::string> m_used;
};

// "kerlo-cli" reads "Kerlo Cli", the way most casks name their app after the token.
std::string displayNameFor(std::string_view token)
{
    std::string name;
    bool wordStart = true;
    for (const char c : token) {
        if (c == '-' || c == '@') {
            name += ' ';
            wordStart = true;
        } else {
            name += wordStart && c >= 'a' && c <= 'z' ? char(c - 'a' + 'A') : c;
            wordStart = false;
        }
    }
    return name;
}

// QJsonObject would sort the keys; the real files' order matters to an on-demand parser, so the records are
// written by hand in the order they were read.
void appendEscaped(std::string& out, std::string_view text)
{
    static constexpr char hex[] = "0123456789abcdef";
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += "\\u00";
                out += hex[(c >> 4) & 0xf];
                out += hex[c & 0xf];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

std::string replacedAll(std::string text, std::string_view from, std::string_view to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// The seed's token and display name inside URLs, paths and app names become the generated ones.
struct Renaming {
    std::string_view oldToken;
    std::string newToken;
    std::string_view oldName;
    std::string newName;

    std::string apply(std::string_view text) const
    {
        // Short tokens ("r", "go") would turn up inside unrelated words.
        constexpr std::size_t shortest = 3;
        std::string result;
        result.reserve(text.size() + 16);
        for (std::size_t i = 0; i < text.size();) {
            const std::string_view rest = text.substr(i);
            if (oldName.size() >= shortest && rest.starts_with(oldName)) {
                result += newName;
                i += oldName.size();
            } else if (oldToken.size() >= shortest && rest.starts_with(oldToken)) {
                result += newToken;
                i += oldToken.size();
            } else {
                result += text[i++];
            }
        }
        return result;
    }
};

class RecordWriter {
public:
    RecordWriter(std::string& out, Random& random, const Renaming& renaming, bool modernBottles)
        : m_out(out)
        , m_random(random)
        , m_renaming(renaming)
        , m_modernBottles(modernBottles)
    {}

    void key(std::string_view name)
    {
        appendEscaped(m_out, name);
        m_out += ':';
    }

    void plainString(std::string_view text) { appendEscaped(m_out, text); }

    void value(dom::element element)
    {
        switch (element.type()) {
        case dom::element_type::OBJECT:
            object(element.get_object().value_unsafe());
            break;
        case dom::element_type::ARRAY: {
            const dom::array items = element.get_array().value_unsafe();
            m_out += '[';
            bool first = true;
            for (const dom::element item : items) {
                separate(first);
                value(item);
            }
            m_out += ']';
            break;
        }
        case dom::element_type::STRING:
            appendEscaped(m_out, m_renaming.apply(element.get_string().value_unsafe()));
            break;
        default:
            m_out += simdjson::minify(element);
        }
    }

    void checksum(int digits = 64)
    {
        static constexpr char hex[] = "0123456789abcdef";
        m_out += '"';
        for (int i = 0; i < digits; ++i) {
            m_out += hex[m_random.below(16)];
        }
        m_out += '"';
    }

private:
    void separate(bool& first)
    {
        if (!first) {
            m_out += ',';
        }
        first = false;
    }

    static bool isChecksum(std::string_view key, dom::element value)
    {
        std::string_view text;
        return key == "sha256" && !value.get_string().get(text) && text.size() == 64;
    }

    void object(dom::object fields)
    {
        m_out += '{';
        bool first = true;
        for (const dom::key_value_pair field : fields) {
            separate(first);
            key(field.key);
            dom::object files;
            if (isChecksum(field.key, field.value)) {
                checksum();
            } else if (m_modernBottles && field.key == "files" && !field.value.get_object().get(files) &&
                       files.size() > 0) {
                bottleFiles(files);
            } else {
                value(field.value);
            }
        }
        m_out += '}';
    }

    // Every platform gets a file shaped like the seed's first one, its URL naming the platform.
    void bottleFiles(dom::object files)
    {
        const dom::key_value_pair model = *files.begin();
        dom::object shape;
        if (model.value.get_object().get(shape)) {
            object(files);
            return;
        }
        m_out += '{';
        bool firstPlatform = true;
        for (const std::string_view platform : bottlePlatforms) {
            separate(firstPlatform);
            key(platform);
            m_out += '{';
            bool first = true;
            for (const dom::key_value_pair field : shape) {
                separate(first);
                key(field.key);
                std::string_view url;
                if (isChecksum(field.key, field.value)) {
                    checksum();
                } else if (field.key == "url" && !field.value.get_string().get(url)) {
                    appendEscaped(m_out, replacedAll(m_renaming.apply(url), model.key, platform));
                } else {
                    value(field.value);
                }
            }
            m_out += '}';
        }
        m_out += '}';
    }

    std::string& m_out;
    Random& m_random;
    const Renaming& m_renaming;
    bool m_modernBottles;
};

std::string_view stringField(dom::object record, std::string_view key)
{
    std::string_view text;
    return record.at_key(key).get_string().get(text) ? std::string_view() : text;
}

// "brewsci/bio/andi" keeps its tap prefix for the new name.
std::string tapPrefix(std::string_view qualified)
{
    const std::size_t slash = qualified.rfind('/');
    return slash == std::string_view::npos ? std::string() : std::string(qualified.substr(0, slash + 1));
}

// Keys today's formula.json carries that the older seed records lack, with the values most records have.
constexpr std::array<std::pair<std::string_view, std::string_view>, 20> currentFormulaKeys = {{
    {"oldnames", "[]"},
    {"compatibility_version", "null"},
    {"autobump", "true"},
    {"no_autobump_message", "null"},
    {"skip_livecheck", "false"},
    {"pour_bottle_only_if", "null"},
    {"keg_only_reason", "null"},
    {"test_dependencies", "[]"},
    {"uses_from_macos_bounds", "[]"},
    {"conflicts_with_reasons", "[]"},
    {"link_overwrite", "[]"},
    {"deprecation_replacement_formula", "null"},
    {"deprecation_replacement_cask", "null"},
    {"deprecate_args", "null"},
    {"disable_replacement_formula", "null"},
    {"disable_replacement_cask", "null"},
    {"disable_args", "null"},
    {"post_install_defined", "false"},
    {"service", "null"},
    {"head_dependencies",
     R"({"build_dependencies":[],"dependencies":[],"test_dependencies":[],"recommended_dependencies":[],)"
     R"("optional_dependencies":[],"uses_from_macos":[],"uses_from_macos_bounds":[]})"},
}};

void writeFormula(std::string& out, dom::object seed, const std::string& token, Random& random)
{
    const Renaming renaming{stringField(seed, "name"), token, {}, {}};
    RecordWriter writer(out, random, renaming, true);
    const std::string prefix = tapPrefix(stringField(seed, "full_name"));
    const bool hasTap = seed.at_key("tap").error() == simdjson::SUCCESS;
    out += '{';
    bool first = true;
    for (const dom::key_value_pair field : seed) {
        out += first ? "" : ",";
        first = false;
        writer.key(field.key);
        std::string_view desc;
        if (field.key == "name") {
            writer.plainString(token);
        } else if (field.key == "full_name") {
            writer.plainString(prefix + token);
            // Where today's records have it, so that reading the keys in order costs what it does for real.
            if (!hasTap) {
                out += ',';
                writer.key("tap");
                writer.plainString(prefix.empty() ? std::string("homebrew/core") : prefix.substr(0, prefix.size() - 1));
            }
        } else if (field.key == "desc" && !field.value.get_string().get(desc) && random.oneIn(40)) {
            writer.plainString(std::string(desc) + " (" + std::string(random.pick(unicodeFragments)) + ")");
        } else {
            writer.value(field.value);
        }
    }
    for (const auto& [key, value] : currentFormulaKeys) {
        if (seed.at_key(key).error() == simdjson::NO_SUCH_FIELD) {
            out += ',';
            writer.key(key);
            out += value;
        }
    }
    out += ',';
    writer.key("tap_git_head");
    writer.checksum(40);
    out += ',';
    writer.key("ruby_source_path");
    writer.plainString("Formula/" + token.substr(0, 1) + '/' + token + ".rb");
    out += ',';
    writer.key("ruby_source_checksum");
    out += '{';
    writer.key("sha256");
    writer.checksum(64);
    out += '}';
    out += '}';
}

void writeCask(std::string& out, dom::object seed, const std::string& token, Random& random)
{
    dom::array names;
    std::string_view oldName;
    if (seed.at_key("name").get_array().get(names) || names.size() == 0 || names.at(0).get_string().get(oldName)) {
        oldName = {};
    }
    std::string newName = displayNameFor(token);
    if (random.oneIn(12)) {
        newName = std::string(random.pick(unicodeFragments)) + ' ' + newName;
    }
    const Renaming renaming{stringField(seed, "token"), token, oldName, newName};
    RecordWriter writer(out, random, renaming, false);
    out += '{';
    bool first = true;
    for (const dom::key_value_pair field : seed) {
        out += first ? "" : ",";
        first = false;
        writer.key(field.key);
        if (field.key == "token") {
            writer.plainString(token);
        } else if (field.key == "full_token") {
            writer.plainString(tapPrefix(stringField(seed, "full_token")) + token);
        } else if (field.key == "name") {
            out += '[';
            writer.plainString(newName);
            out += ']';
        } else {
            writer.value(field.value);
        }
    }
    out += '}';
}

// The parsers own the seed records, so they live as long as the records are read.
struct SeedRecords {
    std::vector<std::unique_ptr<dom::parser>> parsers;
    std::vector<dom::object> records;
};

Result<void> loadSeeds(const QString& folder, const QStringList& files, SeedRecords& seeds)
{
    for (const QString& file : files) {
        const QString path = QDir(folder).filePath(file);
        auto parser = std::make_unique<dom::parser>();
        dom::array records;
        if (const auto error = parser->load(path.toStdString()).get_array().get(records)) {
            return generatorError(seedUnreadable, QStringLiteral("Cannot read the seed records in %1: %2")
                                                      .arg(path, QString::fromUtf8(simdjson::error_message(error))));
        }
        for (const dom::element record : records) {
            dom::object fields;
            if (record.get_object().get(fields)) {
                return generatorError(seedUnreadable,
                                      QStringLiteral("%1 holds something other than records").arg(path));
            }
            seeds.records.push_back(fields);
        }
        seeds.parsers.push_back(std::move(parser));
    }
    if (seeds.records.empty()) {
        return generatorError(seedUnreadable, QStringLiteral("No seed records in %1").arg(folder));
    }
    return {};
}

template <class WriteRecord>
std::string catalogue(const SeedRecords& seeds, int count, std::span<const std::string_view> suffixes, Random& random,
                      WriteRecord writeRecord)
{
    TokenMaker tokens;
    std::string out = "[";
    for (int i = 0; i < count; ++i) {
        out += i == 0 ? "" : ",";
        // In turn rather than at random, so every seed record shapes the same share of the catalogue.
        writeRecord(out, seeds.records[std::size_t(i) % seeds.records.size()], tokens.make(random, suffixes), random);
    }
    out += "]\n";
    return out;
}

Result<void> writeFile(const QString& path, const std::string& text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(text.data(), qint64(text.size())) != qint64(text.size())) {
        return generatorError(fileUnwritable, QStringLiteral("Cannot write %1: %2").arg(path, file.errorString()));
    }
    return {};
}

struct FileCheck {
    QString fileName;
    std::string_view tokenKey;
    int expectedCount;
    // The real catalogue's bytes per record, give or take the spread of the seeds.
    qint64 minBytesPerRecord;
    qint64 maxBytesPerRecord;
};

Result<qint64> checkFile(const QString& folder, const FileCheck& check)
{
    const QString path = QDir(folder).filePath(check.fileName);
    const auto invalid = [&path](const QString& why) {
        return generatorError(catalogueInvalid, QStringLiteral("%1: %2").arg(path, why));
    };
    simdjson::padded_string json;
    if (const auto error = simdjson::padded_string::load(path.toStdString()).get(json)) {
        return invalid(QString::fromUtf8(simdjson::error_message(error)));
    }
    ondemand::parser parser;
    ondemand::document document;
    ondemand::array records;
    if (parser.iterate(json).get(document) || document.get_array().get(records)) {
        return invalid(QStringLiteral("not an array of records"));
    }
    std::unordered_set<std::string_view> tokens;
    int count = 0;
    for (auto record : records) {
        std::string_view token;
        if (record[check.tokenKey].get_string().get(token)) {
            return invalid(QStringLiteral("record %1 has no token").arg(count));
        }
        if (!tokens.insert(token).second) {
            return invalid(QStringLiteral("the token \"%1\" repeats").arg(QString::fromUtf8(token)));
        }
        ++count;
    }
    if (count != check.expectedCount) {
        return invalid(QStringLiteral("%1 records instead of %2").arg(count).arg(check.expectedCount));
    }
    const qint64 size = qint64(json.size());
    if (count > 0 && (size / count < check.minBytesPerRecord || size / count > check.maxBytesPerRecord)) {
        return invalid(QStringLiteral("%1 bytes per record, expected %2 to %3")
                           .arg(size / count)
                           .arg(check.minBytesPerRecord)
                           .arg(check.maxBytesPerRecord));
    }
    return size;
}

} // namespace

CatalogueGenerator::CatalogueGenerator(QString seedDataDir, quint32 seed)
    : m_seedDataDir(std::move(seedDataDir))
    , m_seed(seed)
{}

void CatalogueGenerator::setRecordCounts(int formulae, int casks)
{
    m_formulaCount = formulae;
    m_caskCount = casks;
}

Result<void> CatalogueGenerator::writeTo(const QString& folder) const
{
    const QString seedFolder = QDir(m_seedDataDir).filePath(QStringLiteral("catalogue"));
    SeedRecords formulaSeeds;
    SeedRecords caskSeeds;
    if (Result<void> loaded = loadSeeds(
            seedFolder, {QStringLiteral("formula-sample.json"), QStringLiteral("bio-formula.json")}, formulaSeeds);
        !loaded) {
        return loaded;
    }
    if (Result<void> loaded = loadSeeds(seedFolder, {QStringLiteral("cask-sample.json")}, caskSeeds); !loaded) {
        return loaded;
    }
    if (!QDir().mkpath(folder)) {
        return generatorError(fileUnwritable, QStringLiteral("Cannot create the folder %1").arg(folder));
    }

    Random random(m_seed);
    const std::string formulae = catalogue(formulaSeeds, m_formulaCount, formulaSuffixes, random, writeFormula);
    if (Result<void> written = writeFile(QDir(folder).filePath(formulaFileName()), formulae); !written) {
        return written;
    }
    const std::string casks = catalogue(caskSeeds, m_caskCount, caskSuffixes, random, writeCask);
    return writeFile(QDir(folder).filePath(caskFileName()), casks);
}

Result<void> CatalogueGenerator::verify(const QString& folder) const
{
    // Homebrew's formula.json averages 3.5 kB a record and its cask.json 1.7 kB.
    const Result<qint64> formulaBytes = checkFile(folder, {formulaFileName(), "name", m_formulaCount, 3000, 4500});
    if (!formulaBytes) {
        return formulaBytes.error();
    }
    const Result<qint64> caskBytes = checkFile(folder, {caskFileName(), "token", m_caskCount, 1200, 2500});
    if (!caskBytes) {
        return caskBytes.error();
    }
    // Together about 40 MB at the real record counts.
    constexpr qint64 megabyte = 1000 * 1000;
    const qint64 total = formulaBytes.value() + caskBytes.value();
    if (m_formulaCount == realRecordCount && m_caskCount == realRecordCount &&
        (total < 35 * megabyte || total > 45 * megabyte)) {
        return generatorError(catalogueInvalid, QStringLiteral("%1 bytes in all, expected 35 to 45 MB").arg(total));
    }
    return {};
}
