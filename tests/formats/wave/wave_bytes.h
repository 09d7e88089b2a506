// Small WAV images spelled out, and what tests of this folder do with them.
#pragma once

#include "base/file_object.h"
#include "base/last_error.h"
#include "formats/wave/wave.h"
#include "model/collection.h"
#include "model/waveform.h"

#include <cctype>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vimbo {

using ByteList = std::vector<std::byte>;

/// Bytes from hex digits and 'quoted text'; blanks separate. A text may hold no quotes.
inline ByteList Spell(std::string_view text)
{
    ByteList bytes;
    const auto digit = [](char c) {
        const std::size_t at = std::string_view("0123456789ABCDEF").find(c);
        return at != std::string_view::npos ? at : throw std::invalid_argument("no hex digit");
    };
    while (!text.empty()) {
        if (std::isspace(static_cast<unsigned char>(text[0])) != 0) {
            text.remove_prefix(1);
        } else if (text[0] == '\'') {
            const std::size_t end = text.find('\'', 1);
            for (const char c : text.substr(1, end - 1))
                bytes.push_back(static_cast<std::byte>(c));
            text.remove_prefix(end + 1);
        } else {
            bytes.push_back(static_cast<std::byte>(digit(text[0]) * 16 + digit(text[1])));
            text.remove_prefix(2);
        }
    }
    return bytes;
}

inline ByteList Join(std::initializer_list<ByteList> parts)
{
    ByteList whole;
    for (const ByteList& part : parts)
        whole.insert(whole.end(), part.begin(), part.end());
    return whole;
}

inline ByteList Word(std::uint32_t value)
{
    const U32le word(value);
    const auto bytes = std::as_bytes(std::span(&word, 1));
    return {bytes.begin(), bytes.end()};
}

/// A chunk with its true size, padded to even.
inline ByteList Chunk(std::string_view id, const ByteList& body)
{
    ByteList chunk =
        Join({Spell("'" + std::string(id) + "'"), Word(static_cast<std::uint32_t>(body.size())), body});
    chunk.resize(chunk.size() + (body.size() & 1));
    return chunk;
}

/// A RIFF WAVE image of these chunks.
inline ByteList WaveImage(std::initializer_list<ByteList> chunks)
{
    return Chunk("RIFF", Join({Spell("'WAVE'"), Join(chunks)}));
}

/// `fmt ` of 16 bytes.
inline ByteList Fmt(unsigned tag, unsigned channels, unsigned rateHz, unsigned bits)
{
    const auto low = [](unsigned x) { return ByteList{std::byte(x & 0xFF), std::byte(x >> 8 & 0xFF)}; };
    const unsigned align = channels * ((bits + 7) / 8);
    return Chunk("fmt ",
                 Join({low(tag), low(channels), Word(rateHz), Word(rateHz * align), low(align), low(bits)}));
}

/// Fetches the samples from the image itself; empty with the Last error text on failure.
inline std::vector<float> LoadFrom(Waveform& wave, FileObject& file)
{
    if (!file.Seek(wave.sourceOffset) || wave.importProc == nullptr || !wave.importProc->load(wave, file))
        return {};
    const std::span<float> samples = wave.LockSamples();
    return {samples.begin(), samples.end()};
}

/// A collection with what the reader made of an image.
struct Opened {
    explicit Opened(const ByteList& image) : file(image)
    {
        ClearLastError();
        collection.SetName(u"Image");
        isRead = ReadWave(collection, file, 0);
        if (!collection.List<Waveform>().empty())
            wave = collection.List<Waveform>().front();
    }

    MemoryFile file;
    Collection collection;
    bool isRead = false;
    Waveform* wave = nullptr;
};

} // namespace vimbo
