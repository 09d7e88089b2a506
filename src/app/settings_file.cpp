#include "app/settings_file.h"

#include "base/file_object.h"
#include "base/host.h"
#include "base/last_error.h"
#include "base/path.h"
#include "base/percent.h"
#include "base/text.h"
#include "base/user_folder.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>

#include <fmt/format.h>
#include <toml++/toml.h>

namespace vimbo::app {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMaxFileBytes = 1 << 20;
/// Each dot may nest tables one deeper, and the library frees them by recursion.
constexpr std::ptrdiff_t kMaxDots = 4000;
/// Stands before paths that are no valid UTF-8, which TOML cannot hold: their bytes are percent-encoded.
constexpr std::string_view kEncodedPath = "file://";
constexpr std::string_view kVersionKey = "VersionNumber";
/// What keys may be made of without quotes.
constexpr std::string_view kBareKey = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
constexpr std::string_view kHeading =
    "# Settings of Vimbo Studio. Unknown keys are kept when it saves, comments are not.\n";

// --- values ---------------------------------------------------------------------------------------------

std::string StoredPath(const std::u16string& path)
{
    const std::string bytes = WideToPath(path);
    const bool isPlain = Utf8ToWide(bytes) == path && !bytes.starts_with(kEncodedPath);
    return isPlain ? bytes : std::string(kEncodedPath) + PercentEncoded(bytes);
}

std::u16string PathFromStored(std::string_view text)
{
    return PathToWide(text.starts_with(kEncodedPath) ? PercentDecoded(text.substr(kEncodedPath.size()))
                                                     : std::string(text));
}

template <class T>
toml::array ToArray(const std::vector<T>& values)
{
    toml::array array;
    for (const T& value : values) {
        if constexpr (std::is_same_v<T, std::u16string>)
            array.push_back(StoredPath(value));
        else
            array.push_back(value);
    }
    return array;
}

void Store(toml::table& table, std::string_view name, SettingType type, const SettingValue& value)
{
    std::visit(
        [&](const auto& held) {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::u16string>)
                table.insert_or_assign(name, type == SettingType::Path ? StoredPath(held) : WideToUtf8(held));
            else if constexpr (std::is_same_v<Held, std::uint64_t>) // TOML has signed numbers only
                table.insert_or_assign(name, fmt::format("{:016x}", held));
            else if constexpr (std::is_arithmetic_v<Held>)
                table.insert_or_assign(name, held);
            else
                table.insert_or_assign(name, ToArray(held));
        },
        value);
}

std::optional<SettingValue> MaskOf(std::string_view digits)
{
    constexpr std::size_t kDigits = 16;
    std::uint64_t bits = 0;
    const auto end = digits.data() + digits.size();
    const bool isMask = digits.size() == kDigits && std::from_chars(digits.data(), end, bits, 16).ptr == end;
    return isMask ? std::optional<SettingValue>(bits) : std::nullopt;
}

template <class T, class Read>
std::optional<SettingValue> ListOf(const toml::node& node, Read&& read)
{
    const toml::array* array = node.as_array();
    if (array == nullptr)
        return std::nullopt;
    std::vector<T> values;
    for (const toml::node& element : *array) {
        const auto value = read(element);
        if (!value)
            return std::nullopt;
        values.push_back(*value);
    }
    return values;
}

std::optional<std::int64_t> WholeOf(const toml::node& node)
{
    return node.value_exact<std::int64_t>();
}

std::optional<std::u16string> PathOf(const toml::node& node)
{
    const auto text = node.value_exact<std::string_view>();
    return text ? std::optional(PathFromStored(*text)) : std::nullopt;
}

/// Numbers 0 and 1 count as flags, and whole numbers as numbers: people write them so.
std::optional<SettingValue> ValueOf(const toml::node& node, SettingType type)
{
    const auto wrap = [](auto&& value) {
        return value ? std::optional<SettingValue>(std::move(*value)) : std::nullopt;
    };
    switch (type) {
    case SettingType::Flag:
        if (const auto whole = WholeOf(node))
            return *whole == 0 || *whole == 1 ? std::optional<SettingValue>(*whole == 1) : std::nullopt;
        return wrap(node.value_exact<bool>());
    case SettingType::Whole:
        return wrap(WholeOf(node));
    case SettingType::Number:
        return wrap(node.is_number() ? node.value<double>() : std::nullopt);
    case SettingType::Text: {
        const auto text = node.value_exact<std::string_view>();
        return text ? std::optional<SettingValue>(Utf8ToWide(*text)) : std::nullopt;
    }
    case SettingType::Path:
        return wrap(PathOf(node));
    case SettingType::Mask:
        return MaskOf(node.value_exact<std::string_view>().value_or(""));
    case SettingType::Wholes:
        return ListOf<std::int64_t>(node, WholeOf);
    case SettingType::Paths:
        return ListOf<std::u16string>(node, PathOf);
    }
    return std::nullopt;
}

// --- keys -----------------------------------------------------------------------------------------------

/// Splits off the part before the first dot.
std::string_view TakeName(std::string_view& key)
{
    const std::size_t dot = std::min(key.find('.'), key.size());
    const std::string_view name = key.substr(0, dot);
    key.remove_prefix(std::min(dot + 1, key.size()));
    return name;
}

/// The key's node; null if it is not there.
const toml::node* FindNode(const toml::table& root, std::string_view key)
{
    const toml::table* table = &root;
    const toml::node* node = nullptr;
    while (!key.empty() && table != nullptr) {
        node = table->get(TakeName(key));
        table = node != nullptr ? node->as_table() : nullptr;
    }
    return key.empty() ? node : nullptr;
}

/// The table that holds the key, made if need be, with `key` cut down to the name in it. Null if something
/// else stands in its place.
toml::table* MakeGroup(toml::table& root, std::string_view& key)
{
    toml::table* table = &root;
    while (table != nullptr && key.find('.') != std::string_view::npos) {
        const std::string_view name = TakeName(key);
        toml::node* node = table->get(name);
        table =
            node == nullptr ? table->insert(name, toml::table()).first->second.as_table() : node->as_table();
    }
    return table;
}

// --- reading --------------------------------------------------------------------------------------------

enum class FileState { Missing, Good, Damaged, Unreadable };

struct StoredFile {
    FileState state = FileState::Missing;
    toml::table table;
    std::string problem; ///< of Damaged and Unreadable
};

StoredFile Refused(FileState state, std::string problem)
{
    return {state, {}, std::move(problem)};
}

/// The text as a table in which every group is one.
StoredFile Parse(std::string_view text)
{
    if (std::ranges::count(text, '.') > kMaxDots)
        return Refused(FileState::Damaged, "more dots than settings can have");
    StoredFile stored{FileState::Good, {}, {}};
    try {
        stored.table = toml::parse(text);
    } catch (const toml::parse_error& error) {
        return Refused(FileState::Damaged,
                       fmt::format("line {}: {}", error.source().begin.line, error.description()));
    }
    for (const SettingRow& row : kSettingRows) {
        std::string_view key = row.key;
        if (MakeGroup(stored.table, key) == nullptr)
            return Refused(FileState::Damaged, fmt::format("\"{}\" is not a group of settings",
                                                           row.key.substr(0, row.key.rfind('.'))));
    }
    return stored;
}

StoredFile ReadStored(std::u16string_view path)
{
    std::error_code error;
    const fs::file_status status = fs::status(WideToPath(path), error);
    if (status.type() == fs::file_type::not_found)
        return {};
    if (fs::exists(status) && !fs::is_regular_file(status)) // a pipe would wait for ever
        return Refused(FileState::Unreadable, "is not a regular file");
    FileObject file;
    if (!file.Open(path, FileMode::Read))
        return Refused(FileState::Unreadable, "could not be read");
    if (file.Size() > kMaxFileBytes)
        return Refused(FileState::Damaged, "larger than any settings");
    std::string text(static_cast<std::size_t>(file.Size()), '\0');
    if (!file.ReadExact(std::as_writable_bytes(std::span(text))))
        return Refused(FileState::Unreadable, "could not be read");
    return Parse(text);
}

void Tell(Host& host, const std::string& text)
{
    host.ShowMessage(Utf8ToWide(text), u"Settings", MessageIcon::Warning);
}

// --- writing --------------------------------------------------------------------------------------------

/// Text of a value. Strings stay on one line, as keys must, and in double quotes: version 3.3 of the library
/// puts line breaks into single ones, which it then does not read.
std::string TextOf(const toml::node& node)
{
    constexpr auto kFlags =
        toml::toml_formatter::default_flags &
        ~(toml::format_flags::allow_multi_line_strings | toml::format_flags::allow_literal_strings);
    std::ostringstream out;
    out << toml::toml_formatter(node, kFlags);
    return out.str();
}

std::string KeyText(std::string_view name)
{
    const bool isBare = !name.empty() && name.find_first_not_of(kBareKey) == std::string_view::npos;
    return isBare ? std::string(name) : TextOf(toml::value<std::string>(std::string(name)));
}

/// The table as a file, its known keys in the order of the rows and the others behind them.
class Printer {
public:
    std::string Print(const toml::table& root)
    {
        out_ = kHeading;
        PrintTable(root, "", "");
        return std::move(out_);
    }

private:
    struct Entry {
        std::size_t rank; ///< first row of the setting or group
        std::string key;  ///< plain, with dots
        std::string_view name;
        const toml::node* node;
    };

    static std::size_t RankOf(std::string_view key)
    {
        const auto found = std::ranges::find_if(kSettingRows, [key](const SettingRow& row) {
            return row.key.starts_with(key) && (row.key.size() == key.size() || row.key[key.size()] == '.');
        });
        return static_cast<std::size_t>(found - kSettingRows.begin());
    }

    /// @param key, header  the table's own, without and with quotes
    void PrintTable(const toml::table& table, const std::string& key, const std::string& header)
    {
        std::vector<Entry> entries;
        for (const auto& [name, node] : table) {
            std::string full = (key.empty() ? "" : key + '.') + std::string(name.str());
            const std::size_t rank = RankOf(full);
            entries.push_back({rank, std::move(full), name.str(), &node});
        }
        std::ranges::stable_sort(entries, {}, &Entry::rank);
        const auto isGroup = [](const Entry& entry) {
            return entry.node->is_table() && !entry.node->as_table()->is_inline();
        };
        const bool hasValues = !std::ranges::all_of(entries, isGroup);
        if (!header.empty() && (hasValues || entries.empty()))
            out_ += fmt::format("\n[{}]\n", header);
        for (const Entry& entry : entries)
            if (!isGroup(entry))
                out_ += fmt::format("{} = {}\n", KeyText(entry.name), TextOf(*entry.node));
        for (const Entry& entry : entries)
            if (isGroup(entry))
                PrintTable(*entry.node->as_table(), entry.key,
                           (header.empty() ? "" : header + '.') + KeyText(entry.name));
    }

    std::string out_;
};

/// Moves the file to a name under which nothing will replace it. @return that name; "" if it cannot be moved
std::string SetAside(const std::string& path)
{
    constexpr int kMaxNames = 1000;
    for (int i = 1; i < kMaxNames; ++i) {
        std::string aside = i == 1 ? path + ".damaged" : fmt::format("{}.damaged-{}", path, i);
        std::error_code error;
        if (fs::exists(fs::symlink_status(aside, error)))
            continue;
        fs::rename(path, aside, error);
        return error ? std::string() : aside;
    }
    return {};
}

bool WriteWhole(std::u16string_view path, std::string_view text)
{
    const std::u16string folder = DirectoryOf(path);
    GuardedFile guarded;
    return ((folder.empty() || MakeDirectories(folder)) && guarded.Create(path) &&
            guarded.File().WriteAll(std::as_bytes(std::span(text))) && guarded.Commit()) ||
           Fail(u"The settings could not be written to " + std::u16string(path));
}

} // namespace

std::u16string UserSettingsPath()
{
    if (const char* named = std::getenv("VIMBO_SETTINGS"))
        return PathToWide(named);
    const std::string folder = UserFolder("XDG_CONFIG_HOME", ".config");
    return folder.empty() ? std::u16string() : PathToWide(folder + "/vimbo-studio/settings.toml");
}

Settings LoadSettings(std::u16string_view path, Host& host)
{
    Settings settings;
    const StoredFile stored = path.empty() ? StoredFile() : ReadStored(path);
    if (stored.state == FileState::Damaged || stored.state == FileState::Unreadable)
        Tell(host, stored.problem + "; all settings have their defaults");
    std::string refused;
    for (std::size_t row = 0; row < kSettingRows.size(); ++row) {
        const toml::node* node = FindNode(stored.table, kSettingRows[row].key);
        if (node == nullptr)
            continue;
        std::optional<SettingValue> value = ValueOf(*node, kSettingRows[row].type);
        if (!value || !settings.SetValue(row, std::move(*value)))
            refused += fmt::format("{}line {}: {} must be {}; the default is used",
                                   refused.empty() ? "" : "\n", node->source().begin.line,
                                   kSettingRows[row].key, DescribeLimits(kSettingRows[row]));
    }
    if (!refused.empty())
        Tell(host, refused);
    settings.ForgetChanges();
    return settings;
}

bool SaveSettings(Settings& settings, std::u16string_view path, Host& host)
{
    if (path.empty())
        return Fail(u"There is no file to keep settings in");
    // The file behind a link is what is read, renamed and replaced.
    std::error_code error;
    const fs::path real = fs::canonical(WideToPath(path), error);
    const std::u16string target = error ? std::u16string(path) : PathToWide(real.native());
    StoredFile stored = ReadStored(target);
    if (stored.state == FileState::Unreadable)
        return Fail(u"The settings file " + Utf8ToWide(stored.problem) + u"; it is left as it is");
    for (std::size_t row = 0; row < kSettingRows.size(); ++row) {
        std::string_view key = kSettingRows[row].key;
        const bool isKept = !settings.IsChanged(row) && FindNode(stored.table, key) != nullptr;
        const bool isUnset = kSettingRows[row].mayBeUnset && settings.IsDefault(row);
        if (isKept)
            continue;
        toml::table& group = *MakeGroup(stored.table, key);
        if (isUnset)
            group.erase(key);
        else
            Store(group, key, kSettingRows[row].type, settings.Value(row));
    }
    stored.table.insert_or_assign(kVersionKey, VIMBO_VERSION);
    const std::string text = Printer().Print(stored.table);
    if (Parse(text).state != FileState::Good) // never leave what the next start could not read
        return Fail(u"The settings could not be put into words");
    std::string aside;
    if (stored.state == FileState::Damaged && (aside = SetAside(WideToPath(target))).empty())
        return Fail(u"The damaged settings file could not be renamed");
    if (!WriteWhole(target, text)) {
        if (!aside.empty())
            fs::rename(aside, WideToPath(target), error);
        return false;
    }
    if (!aside.empty())
        Tell(host, fmt::format("{}; the damaged file is kept as {}", stored.problem, aside));
    settings.ForgetChanges();
    return true;
}

} // namespace vimbo::app
