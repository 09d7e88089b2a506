// Sample files written beside an SFZ text.
#pragma once

#include "formats/save.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace vimbo::sfz {

/// Writes further files of one saving run, under hidden names until Commit puts them into their places. What
/// is there already is kept if it holds the same; else it is replaced only if the host says so, and never if
/// a waveform of the collection is read from it. Without Commit everything stays as it was.
class SampleFileWriter {
public:
    SampleFileWriter(Collection& items, const FormatChoice& choice);
    ~SampleFileWriter();
    SampleFileWriter(const SampleFileWriter&) = delete;
    SampleFileWriter& operator=(const SampleFileWriter&) = delete;

    struct Sample {
        std::u16string name; ///< of the file, without its folder
        DataFormat format = DataFormat::None;
        bool mayLoop = false; ///< it holds a loop although the waveform has none
    };
    /// The file of a waveform in `folder`, which is made if need be. Null with the Last error text on
    /// failure.
    const Sample* Write(Waveform& wave, const std::u16string& folder);
    /// A text in a file of its own; false with the Last error text.
    [[nodiscard]] bool WriteText(const std::u16string& folder, std::u16string_view name,
                                 std::string_view text, std::u16string* written = nullptr);
    /// All files take their places; none if that fails (Last error text).
    [[nodiscard]] bool Commit();
    /// Keeps a name free of the files of this run.
    void Reserve(const std::u16string& folder, std::u16string_view fileName);

private:
    enum class Found { Free, Same, Original, Foreign };
    struct Coding {
        const FormatRow* row = nullptr; ///< never null: the rows are in the table
        DataFormat format = DataFormat::None;
        FormatChoice choice;
    };
    Coding CodingOf(const Waveform& wave) const;
    bool IsOriginalOf(const Waveform& wave, const std::u16string& path) const;
    bool IsSource(const std::u16string& path) const;
    bool MayReplace(const std::u16string& path, bool& isCancelled);
    /// Finds the place of new content, of which `scratch` holds a copy as soon as it is needed.
    [[nodiscard]] bool MakeFolder(const std::u16string& folder);
    template <class Content>
    [[nodiscard]] bool Stage(const std::u16string& path, Content& content);
    template <class Content>
    bool Place(const std::u16string& folder, const std::u16string& base, std::u16string_view extension,
               Content& content, std::u16string& name);
    std::u16string Free(const std::u16string& folder, const std::u16string& base,
                        std::u16string_view extension, unsigned number) const;

    Collection& items_;
    Host& host_;
    FormatChoice choice_;
    std::set<std::u16string> sources_; ///< real paths of the samples in use
    std::map<std::pair<std::u16string, const Waveform*>, Sample> written_;
    std::set<std::u16string> taken_; ///< folded paths of this run
    GuardedFileSet staged_;
    std::vector<std::u16string> folders_; ///< that the run made
    int replaceAnswer_ = -1;
};

} // namespace vimbo::sfz
