// One sampled sound: its description, loop, markers, and a block of samples that is read when first needed.
#pragma once

#include "base/file_object.h"
#include "model/data_format.h"
#include "model/frame_source.h"
#include "model/loop_info.h"
#include "model/sample_block.h"
#include "model/text_item.h"

#include <memory>
#include <string>
#include <vector>

namespace vimbo {

class Waveform;
struct DerivedSource;

inline constexpr unsigned kMaxChannels = 2;
inline constexpr std::uint32_t kMaxRateHz = 768000;
inline constexpr std::size_t kMaxMarkers = 65535;

/// How a waveform's samples are fetched from its source. One constant object per procedure; state files store
/// the id.
struct ImportProcedure {
    std::uint64_t id; ///< stable number, never 0
    /// Builds the block (Waveform::AllocateSamples) from `file`, which stands at sourceOffset. On failure the
    /// Last error text is set. `file` is closed and empty for sources that are no files (paths that begin
    /// with '<').
    bool (*load)(Waveform& wave, FileObject& file);
    /// Null, or opens the samples for reading in pieces; null result with the Last error text on failure.
    std::unique_ptr<FrameSource> (*stream)(const Waveform& wave, std::unique_ptr<FileObject> file);
};

/// The procedure for plain sample data: the encoding stands in the source word.
extern const ImportProcedure kGenericImport;

/// A named position or range.
struct Marker {
    bool isRange = false;
    std::uint32_t position = 0; ///< frame of the marker or of the range's start
    std::uint32_t end = 0;      ///< frame after the range's end
    std::u16string name;
    std::uint32_t id = NextId(); ///< keeps the marker's identity through edits

    static std::uint32_t NextId() noexcept;
    /// Equal in everything but the identity.
    bool SameAs(const Marker& other) const noexcept;
};

/// What to do with two channels when one is wanted.
enum class MonoMode : int { Average = 0, Left = 1, Right = 2, Split = 3, LeftIfEqual = 4 };
/// What to do with one channel when two are wanted.
enum class StereoMode : int { Duplicate = 0, AsLeft = 1, AsRight = 2, LeftAndSecond = 3, SecondAndRight = 4 };

class Waveform final : public TextItem {
public:
    static constexpr ItemKind kKind = ItemKind::Waveform;
    Waveform(ItemKey key, Collection& owner) noexcept;
    Waveform(ItemKey key, Collection& owner, const Waveform& source);
    ~Waveform() override;

    std::uint32_t frames = 0;
    std::uint32_t rateHz = 22050;
    std::uint8_t bits = 0; ///< nominal bits per sample of the source; 0 until Validate
    std::uint8_t channels = 1;
    std::uint8_t rootKey = 60;
    std::int8_t fineTune = 0; ///< cents, -100 to 100
    float volume = 0;         ///< playback gain in dB, -96 to 96
    LoopInfo loop;
    SaveFormat saveFormat = SaveFormat::Default;
    std::uint64_t sourceOffset = 0;
    std::uint64_t formatOffset =
        0; ///< private to the reader: where its own description of the data lies in the file
    std::uint64_t sourceBytes = 0; ///< private to the reader: length of the raw data, where it needs to know
    const ImportProcedure* importProc = nullptr;
    std::uint8_t sourceTag = 0; ///< private to the reader
    std::vector<Marker> markers;
    /// What the samples are made of, for waveforms that read other sources (see sample_source.h); else null.
    std::shared_ptr<const DerivedSource> derived;

    /// Describes plain sample data: sets the generic import, the source word, `bits` and `saveFormat`.
    void SetSourceFormat(DataFormat format, std::uint32_t flags) noexcept;
    /// The same with the format chosen by width: below 9 bits PCM 8, below 17 PCM 16, below 25 PCM 24, else
    /// PCM 32.
    void SetSourceBits(int bitsPerSample, std::uint32_t flags) noexcept;
    bool HasGenericImport() const noexcept { return importProc == &kGenericImport; }
    /// The DataFormat of the source word (None if it holds no format bit).
    DataFormat SourceFormat() const noexcept { return FirstFormatOf(sourceWord); }

    /// Reads the samples if they are not in memory. Errors: "No wave data import procedure", "Could not open
    /// file", and those of the procedure. On failure the waveform stays as it was.
    [[nodiscard]] bool EnsureData() override;
    /// frames * channels interleaved samples for reading; loads or, without a source, allocates silence.
    /// Empty on failure (Last error text) and for a waveform without frames.
    std::span<float> LockSamples();
    /// The same for writing: from then on the block is the truth, and the source is forgotten.
    std::span<float> LockSamplesForWrite();
    /// A fresh block for the current frames, channels and rate, contents undefined; for importers. Empty:
    /// "Out of memory".
    std::span<float> AllocateSamples();
    /// Releases the block; with an import procedure the samples can be read again.
    void FreeSamples() noexcept;
    bool HasBlock() const noexcept { return static_cast<bool>(block_); }
    const SampleBlockRef& Block() const noexcept { return block_; }
    /// Takes over another block: frames, channels and rate follow, the source is forgotten.
    void ReplaceBlock(SampleBlockRef block) noexcept;
    /// Opens the samples for reading in pieces: from the block if there is one, else from the source, which
    /// loads the block only if its procedure cannot stream. Null with the Last error text on failure.
    std::unique_ptr<FrameSource> OpenFrames();

    const Marker* FindMarker(std::u16string_view name) const noexcept;
    /// First marker whose position lies within `tolerance` frames and, if rangeLength is not 0, which is a
    /// range of that length.
    const Marker* FindMarkerAt(std::uint32_t position, std::uint32_t tolerance,
                               std::uint32_t rangeLength) const noexcept;

    /// Makes a stereo waveform mono; does nothing on mono. For Split, `second` gets the right channel as a
    /// new waveform.
    [[nodiscard]] bool ToMono(MonoMode mode, Waveform** second = nullptr);
    /// Makes a mono waveform stereo; does nothing on stereo. Errors: "Invalid algorithm", "No 2nd waveform
    /// specified", "2nd waveform is not mono".
    [[nodiscard]] bool ToStereo(StereoMode mode, Waveform* second = nullptr);
    /// Removes frames [from, to); loop and markers follow. False if nothing would be cut or nothing would
    /// remain.
    [[nodiscard]] bool CutRange(std::uint32_t from, std::uint32_t to);

    void Validate() override;
    bool IsParamSet(std::uint16_t id) const override;
    float GetParam(std::uint16_t id) const override;
    void SetParam(std::uint16_t id, float value) override;
    void ClearParam(std::uint16_t id, float inherited) override;
    const ParamRow& GetParamInfo(std::uint16_t id) const override;
    void Serialize(ByteWriter& out) const override;
    [[nodiscard]] bool Deserialize(ByteReader& in) override;

protected:
    std::u16string DefaultName() override;

private:
    void NormalizeMarkers();
    void PlayLoopForward();
    std::unique_ptr<FileObject> OpenSource() const;

    SampleBlockRef block_;
};

/// A stereo waveform's name without its suffix: "Piano S", "Piano - s" and "Piano" are all "Piano".
std::u16string_view WithoutStereoSuffix(std::u16string_view name) noexcept;

/// Reads all frames of `source` into a fresh block: the last step of importers. On failure the waveform has
/// none.
[[nodiscard]] bool LoadFrames(Waveform& wave, FrameSource& source);

} // namespace vimbo
