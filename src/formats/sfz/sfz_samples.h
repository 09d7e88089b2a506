// The files that an SFZ text refers to: further texts, and samples as waveforms.
#pragma once

#include "formats/open.h"
#include "formats/sfz/sfz.h"
#include "formats/sfz/sfz_text.h"

#include <map>

namespace vimbo::sfz {

/// Finds and opens what lies around a text. Every sample file becomes one waveform, however many regions name
/// it; only headers are read.
class SampleFiles {
public:
    SampleFiles(Collection& items, const Surroundings& place);

    /// The waveform of a sample as a region names it; null if there is none, which is told once for each name
    /// at the end.
    Waveform* Find(std::string_view name);
    /// What tells a text's file apart from others; "" for none.
    static std::string IdOf(std::u16string_view path);
    std::optional<IncludedText> LoadInclude(std::string_view name, std::string_view includer);
    /// Tells the host which samples are missing.
    void Report() const;

private:
    bool IsAllowed(std::u16string_view path) const;
    bool Locate(std::u16string_view name, std::u16string& path);
    Waveform* Load(const std::u16string& path);

    Collection& items_;
    const Surroundings& place_;
    PathFinder finder_;
    MissingFileSearch search_;
    std::map<std::string, Waveform*, std::less<>> byName_;
    std::map<std::u16string, Waveform*> byPath_;
    std::vector<std::u16string> missing_;     ///< names
    std::vector<std::u16string> unsupported_; ///< paths
};

} // namespace vimbo::sfz
