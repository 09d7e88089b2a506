// Small AIFF images spelled out, and what tests of this folder do with them.
#pragma once

#include "base/text.h"
#include "formats/aiff/aiff.h"
#include "formats/wave/wave_bytes.h"

namespace vimbo {

inline ByteList WordBe(std::uint32_t value)
{
    const U32be word(value);
    const auto bytes = std::as_bytes(std::span(&word, 1));
    return {bytes.begin(), bytes.end()};
}

/// A chunk with its true size, padded to even.
inline ByteList IffChunk(std::string_view id, const ByteList& body)
{
    ByteList chunk =
        Join({Spell("'" + std::string(id) + "'"), WordBe(static_cast<std::uint32_t>(body.size())), body});
    chunk.resize(chunk.size() + (body.size() & 1));
    return chunk;
}

inline ByteList IffImage(std::string_view type, std::initializer_list<ByteList> chunks)
{
    return IffChunk("FORM", Join({Spell("'" + std::string(type) + "'"), Join(chunks)}));
}

/// `COMM` at 44100 Hz; an empty tag leaves it out.
inline ByteList Comm(unsigned channels, unsigned frames, unsigned bits, std::string_view tag = "")
{
    const auto low = [](unsigned x) { return ByteList{std::byte(x >> 8 & 0xFF), std::byte(x & 0xFF)}; };
    ByteList body = Join({low(channels), WordBe(frames), low(bits), Spell("400E AC44 0000 0000 0000")});
    if (!tag.empty())
        body = Join({body, Spell("'" + std::string(tag) + "' 00 00")});
    return IffChunk("COMM", body);
}

inline ByteList Ssnd(const ByteList& samples)
{
    return IffChunk("SSND", Join({ByteList(8), samples}));
}

/// A collection with what the reader made of an image.
struct OpenedAiff {
    explicit OpenedAiff(const ByteList& image) : file(image)
    {
        ClearLastError();
        collection.SetName(u"Image");
        isRead = ReadAiff(collection, file, 0);
        if (!collection.List<Waveform>().empty())
            wave = collection.List<Waveform>().front();
    }
    std::vector<float> Samples() { return wave != nullptr ? LoadFrom(*wave, file) : std::vector<float>(); }

    MemoryFile file;
    Collection collection;
    bool isRead = false;
    Waveform* wave = nullptr;
};

} // namespace vimbo
