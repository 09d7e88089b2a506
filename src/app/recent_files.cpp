#include "app/recent_files.h"

#include "base/path.h"
#include "base/text.h"

#include <filesystem>

namespace vimbo::app {

namespace {

constexpr SettingKey<std::vector<std::u16string>> kList = "app.LastFilesW";

/// Without the current folder, a path of a later session would mean another file.
std::u16string Absolute(std::u16string_view path)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(WideToPath(path), error);
    return error ? std::u16string(path) : PathToWide(absolute.native());
}

} // namespace

std::u16string GetRecentFile(const Settings& settings, std::size_t index)
{
    const std::vector<std::u16string>& list = settings.Get(kList);
    return index < list.size() ? list[index] : std::u16string();
}

void AddRecentFile(Settings& settings, std::u16string_view path)
{
    if (path.empty())
        return;
    const std::u16string absolute = Absolute(path);
    std::vector<std::u16string> list = settings.Get(kList);
    std::erase(list, absolute);
    list.insert(list.begin(), absolute);
    if (list.size() > kSettingRows[kList.Row()].count)
        list.resize(kSettingRows[kList.Row()].count);
    (void)settings.Set(kList, std::move(list));
}

void RemoveRecentFile(Settings& settings, std::u16string_view path)
{
    std::vector<std::u16string> list = settings.Get(kList);
    if (std::erase(list, Absolute(path)) != 0)
        (void)settings.Set(kList, std::move(list));
}

void RememberFile(Settings& settings, std::u16string_view path, FileRole role, AddToRecent add)
{
    const std::u16string folder = DirectoryOf(Absolute(path));
    if (role == FileRole::Output)
        (void)settings.Set<std::u16string>("app.LastPathOutW", folder);
    else
        (void)settings.Set<std::u16string>("app.LastPathInW", folder);
    if (add == AddToRecent::Yes)
        AddRecentFile(settings, path);
}

std::u16string WindowTitle(std::u16string_view path)
{
    return std::u16string(path.substr(GetFileName(path))) + u" - Vimbo Studio";
}

} // namespace vimbo::app
