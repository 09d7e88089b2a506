// A scratch folder with sample files, for the tests of reading and writing SFZ.
#pragma once

#include "base/path.h"
#include "base/text.h"
#include "formats/format_table.h"
#include "formats/open.h"
#include "formats/save.h"
#include "model/consistency.h"
#include "model/instrument.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace vimbo::testing {

class SfzFolder {
public:
    SfzFolder() { std::filesystem::create_directories(Path("")); }
    ~SfzFolder()
    {
        std::error_code error;
        std::filesystem::remove_all(root_, error);
    }
    SfzFolder(const SfzFolder&) = delete;
    SfzFolder& operator=(const SfzFolder&) = delete;

    std::filesystem::path Path(const std::string& name) const { return root_ / name; }
    std::u16string Wide(const std::string& name) const { return PathToWide(Path(name).string()); }
    void Put(const std::string& name, std::string_view text) const
    {
        std::filesystem::create_directories(Path(name).parent_path());
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    std::string Get(const std::string& name) const
    {
        std::ifstream in(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    /// A WAV file of 16-bit ramps; a loop from a third to two thirds, if wanted.
    void PutWave(const std::string& name, std::uint32_t frames = 300, unsigned channels = 1,
                 bool isLooped = false) const
    {
        std::filesystem::create_directories(Path(name).parent_path());
        Collection items;
        Waveform& wave = items.Create<Waveform>(u"w");
        FillWave(wave, frames, channels);
        if (isLooped)
            wave.loop = {.type = LoopType::Forward, .start = frames / 3.0, .end = frames * 2 / 3.0};
        wave.Validate();
        const int row = FindRowByExtension(u"wav", kKindWave);
        ASSERT_TRUE(SaveItem(&wave, row, Wide(name), AutoChoice(row)));
    }
    static void FillWave(Waveform& wave, std::uint32_t frames, unsigned channels)
    {
        wave.frames = frames;
        wave.channels = static_cast<std::uint8_t>(channels);
        wave.rateHz = 44100;
        wave.saveFormat = SaveFormat::Pcm16;
        const std::span<float> samples = wave.LockSamplesForWrite();
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = static_cast<float>(i % 200) / 32768.0f;
        wave.loop.end = frames;
    }

private:
    std::filesystem::path root_ =
        std::filesystem::path(::testing::TempDir()) /
        (std::string("sfz_") + ::testing::UnitTest::GetInstance()->current_test_info()->name() + "_" +
         std::to_string(count_++));
    static inline int count_ = 0;
};

/// Keeps what it is told.
class RecordingHost final : public Host {
public:
    void ShowMessage(std::u16string_view text, std::u16string_view, MessageIcon) override
    {
        messages.push_back(WideToUtf8(text));
    }
    std::size_t Ask(const Question& question) override
    {
        ++asked;
        return answer.value_or(question.defaultButton);
    }
    bool WantsNotes() const override { return true; }
    void NoteConversion(ConversionNote note) override
    {
        if (note.fidelity != Fidelity::Kept)
            notes.push_back(std::move(note));
    }
    std::uint64_t Count(std::u16string_view what) const
    {
        std::uint64_t count = 0;
        for (const ConversionNote& note : notes)
            count += note.what == what ? note.count : 0;
        return count;
    }

    std::optional<std::size_t> answer;
    int asked = 0;
    std::vector<std::string> messages;
    std::vector<ConversionNote> notes;
};

} // namespace vimbo::testing
