#include "formats/conversion_notes.h"

#include "bank_builder.h"
#include "model/song.h"

namespace vimbo {
namespace {

using testing::Bank;

class NotingHost final : public Host {
public:
    void NoteConversion(ConversionNote note) override { notes.push_back(std::move(note)); }
    bool WantsNotes() const override { return wants; }
    bool wants = true;
    std::vector<ConversionNote> notes;
};

/// "lost Pan position: 50 % ->", the kept ones as "kept Pan position x2".
std::string Text(const ConversionNote& note)
{
    const auto utf8 = [](const std::u16string& text) { return WideToUtf8(text); };
    if (note.fidelity == Fidelity::Kept)
        return "kept " + utf8(note.what) + " x" + std::to_string(note.count);
    return std::string(note.fidelity == Fidelity::Lost ? "lost " : "near ") + utf8(note.what) + ": " +
           utf8(note.from) + " ->" + (note.to.empty() ? "" : " ") + utf8(note.to);
}

struct Notes {
    template <class Do>
    std::vector<std::string> Of(Do run)
    {
        NotingHost host;
        {
            ConversionNotes notes(host);
            run(notes);
        }
        std::vector<std::string> texts;
        for (const ConversionNote& note : host.notes)
            if (note.fidelity != Fidelity::Kept)
                texts.push_back(Text(note));
        all = std::move(host.notes);
        return texts;
    }
    std::uint64_t KeptOf(std::u16string_view what) const
    {
        for (const ConversionNote& note : all)
            if (note.fidelity == Fidelity::Kept && note.what == what)
                return note.count;
        return 0;
    }
    std::vector<ConversionNote> all;
};

TEST(IsHeard, OnlyPartsThatAreInUse)
{
    struct Case {
        ParamId id;
        std::vector<std::pair<ParamId, float>> silent, heard; ///< settings beside the defaults
    };
    const auto v = [](ParamId offset) {
        return static_cast<ParamId>(EnvelopeBase(EnvelopeIndex::Volume) + offset);
    };
    const auto f = [](ParamId offset) {
        return static_cast<ParamId>(EnvelopeBase(EnvelopeIndex::Filter) + offset);
    };
    const auto x = [](ParamId offset) {
        return static_cast<ParamId>(EnvelopeBase(EnvelopeIndex::X) + offset);
    };
    constexpr float kLowPass = 2;
    const Case cases[] = {
        {kArtCutoff, {{kArtCutoff, 500}}, {{kArtFilterType, kLowPass}}},
        {kArtResonance, {{kArtResonance, 6}}, {{kArtFilterType, kLowPass}}},
        {kArtFEnvToCutoff, {{kArtFEnvToCutoff, 12}}, {{kArtFEnvToCutoff, 12}, {kArtFilterType, kLowPass}}},
        {kArtVelToCutoff, {{kArtFilterType, kLowPass}}, {{kArtVelToCutoff, -1}, {kArtFilterType, kLowPass}}},
        {f(kEnvSustain), {{kArtFEnvToCutoff, 12}}, {{kArtVelFEnvToCutoff, 12}, {kArtFilterType, kLowPass}}},
        {x(kEnvSustain), {{kArtXLfoToPan, 1}}, {{kArtXEnvToPan, 0.5f}}},
        {kArtEqFrequency + 4, {{kArtEqGain, 3}}, {{kArtEqGain + 4, 3}}},
        {kArtLfos + 1, {{kArtVLfoToVolume, 3}}, {{kArtWheelPLfoToPitch, 0.5f}}},
        {kArtLfos + 4, {{kArtPLfoToPitch, 1}}, {{kArtVelVLfoToVolume, 3}}},
        {kArtLfos + 8, {{kArtFLfoToCutoff, 3}}, {{kArtFLfoToCutoff, 3}, {kArtFilterType, kLowPass}}},
        {kArtLfos + 12, {{kArtPLfoToPitch, 1}}, {{kArtXLfoToPan, 0.5f}}},
        {kArtPan, {}, {{kArtPan, -1}}},
        {kArtSend, {}, {{kArtSend, 0.5f}}},
        {kArtCcToSend, {{kArtCcToSend, 0}, {kArtSend, 1}}, {}},
        {v(kEnvVelToDecay2), {{v(kEnvDecay1Time), 1}}, {{v(kEnvDecay2Time), 1}}},
        {v(kEnvKeyToAttack1), {{v(kEnvAttack2Time), 1}}, {{v(kEnvAttack1Time), 1}}},
        {v(kEnvRelease2Time), {{v(kEnvReleaseMode), 1}}, {}},
    };
    for (const Case& test : cases) {
        ArticulationBlock silent, heard;
        for (const auto& [id, value] : test.silent)
            silent.Set(id, value);
        for (const auto& [id, value] : test.heard)
            heard.Set(id, value);
        EXPECT_FALSE(IsHeard(silent, test.id)) << test.id;
        EXPECT_TRUE(IsHeard(heard, test.id)) << test.id;
    }
    const ArticulationBlock plain;
    for (const ParamId id :
         {kArtKeyToPitch, kArtBendToPitch, kArtVelToVolume, v(kEnvSustain), v(kEnvShutdownRate)})
        EXPECT_TRUE(IsHeard(plain, id)) << id;
    EXPECT_FALSE(IsHeard(plain, 134)) << "no parameter";
}

TEST(ConversionNotes, ArticulationInStepsThatCanBeHeard)
{
    Bank bank;
    Instrument& instrument = bank.Add(u"Grand", 0, {{{60, 71, 1, 64}}});
    const Region& region = *instrument.Layers()[0]->Regions()[0];
    ArticulationBlock wanted, held;
    wanted.Set(kArtVolume, -6);
    held.Set(kArtVolume, -6.04f);
    wanted.Set(kArtTuning, 0.5f);
    held.Set(kArtTuning, 0.52f);
    wanted.Set(kArtFilterType, 2);
    wanted.Set(kArtCutoff, 1000);
    wanted.Set(kArtVelToVolume, 48);
    wanted.Set(kArtPan, 0.5f);
    held.Set(kArtPan, 0.504f);
    wanted.Set(kArtEqFrequency, 999); // of a band without gain
    Notes notes;
    EXPECT_EQ(notes.Of([&](ConversionNotes& n) {
        n.Articulation(region, wanted, held, u"too small");
        n.Articulation(region, wanted, wanted);
    }),
              (std::vector<std::string>{"near Master tuning Pitch adjustment: 0.5 st -> 0.52 st",
                                        "lost Velocity to Volume: 48 dB -> 96 dB",
                                        "lost Filter type: Low-Pass 12 dB/oct ->",
                                        "lost Filter Cutoff frequency: 1000 Hz -> 8000 Hz"}));
    EXPECT_EQ(WideToUtf8(notes.all[0].item), "Grand / Layer 1 / C4..B4 : 1..64");
    EXPECT_EQ(notes.all[0].reason, u"too small");
    EXPECT_EQ(notes.KeptOf(u"Master Volume adjustment"), 2u);
    EXPECT_EQ(notes.KeptOf(u"Pan position"), 2u);
    EXPECT_EQ(notes.KeptOf(u"EQ 1 center Frequency"), 0u);
    EXPECT_EQ(notes.KeptOf(u"Velocity to Volume"), 1u);
}

TEST(ConversionNotes, EnvelopesThatRunAlikeAreKept)
{
    Bank bank;
    Envelope envelope;
    envelope.attack1 = {0.5f, 1};
    envelope.attack2 = {0, 1};
    envelope.decay1 = {2, 0.25f};
    envelope.decay2 = {0, 0.25f};
    envelope.release1Rate = 3;
    Envelope other = envelope; // the attack's ramp and the decay in two halves
    other.attack1 = {0.25f, 0.5f};
    other.attack2 = {0.25f, 1};
    other.decay1 = {1, 0.625f};
    other.decay2 = {1, 0.25f};
    const auto notesOf = [&](const Envelope& held) {
        ArticulationBlock a, b;
        SetEnvelope(a, envelope, EnvelopeIndex::Volume);
        SetEnvelope(b, held, EnvelopeIndex::Volume);
        return Notes().Of([&](ConversionNotes& n) { n.Articulation(bank.wave, a, b); });
    };
    EXPECT_TRUE(notesOf(other).empty());
    Envelope bent = other; // alike at the middle of the keyboard only
    bent.decay1.key = 0.5f;
    EXPECT_EQ(notesOf(bent).size(), 7u);
    other.decay1.level = 0.7f;
    EXPECT_EQ(notesOf(other).size(), 6u) << "now each value speaks for itself";
    Envelope slower = envelope;
    slower.attack1.seconds = 0.504f;
    EXPECT_TRUE(notesOf(slower).empty());
    slower.attack1.seconds = 0.6f;
    slower.release1Rate = 0;
    EXPECT_EQ(notesOf(slower), (std::vector<std::string>{"near V-ENV Attack 1 Time: 0.5 s -> 0.6 s",
                                                         "lost V-ENV Release 1 Rate: 3 s ->"}));
    Envelope keyed = envelope;
    keyed.decay1.key = 0.5f;
    EXPECT_EQ(notesOf(keyed),
              std::vector<std::string>{"near V-ENV Key number to Decay 1 Time: 1 x -> 0.5 x"});
}

TEST(ConversionNotes, TriggersLoopsAndTexts)
{
    Bank bank;
    const Item& item = bank.wave;
    TriggerParams wanted, held;
    wanted.keys = {10, 100};
    held.keys = {10, 127};
    wanted.velocities = {0, 127};
    held.velocities = {1, 127};
    wanted.keyFadeFormula = 1; // without a fade
    wanted.delaySeconds = 1;
    held.delaySeconds = 1.005f;
    wanted.triggerType = 1;
    Notes notes;
    EXPECT_EQ(notes.Of([&](ConversionNotes& n) { n.Trigger(item, wanted, held); }),
              (std::vector<std::string>{"lost High key: E7 -> G9", "lost Trigger type: Key Release ->"}));
    EXPECT_EQ(notes.KeptOf(u"Low key"), 1u);
    EXPECT_EQ(notes.KeptOf(u"Delay"), 1u);

    LoopInfo loop, file;
    loop.start = 5;
    EXPECT_TRUE(notes.Of([&](ConversionNotes& n) { n.Loop(item, loop, file); }).empty()) << "off is off";
    EXPECT_TRUE(notes.all.empty());
    loop.type = LoopType::Alternating;
    loop.start = 20000000.25;
    loop.end = 20001000;
    loop.breakOnRelease = true;
    file = loop;
    file.start = 20000000;
    file.end += 0.004;
    file.type = LoopType::Forward;
    file.breakOnRelease = false;
    EXPECT_EQ(notes.Of([&](ConversionNotes& n) { n.Loop(item, loop, file); }),
              (std::vector<std::string>{"near Loop type: Alternating -> Forward",
                                        "near Loop start: 20000000.25 -> 20000000",
                                        "lost Loop release mode: Break on Release ->"}));
    EXPECT_EQ(notes.KeptOf(u"Loop end"), 1u);
    file.type = LoopType::Off;
    EXPECT_EQ(notes.Of([&](ConversionNotes& n) { n.Loop(item, loop, file); }),
              std::vector<std::string>{"lost Loop type: Alternating ->"});

    bank.wave.SetText(kTextArtist, u"Someone with a name");
    bank.wave.SetImage(std::vector<std::byte>{std::byte{0xFF}, std::byte{0xD8}, {}, {}, {}, {}, {}, {}});
    EXPECT_EQ(
        notes.Of([&](ConversionNotes& n) {
            n.Text(bank.wave, kTextArtist, u"Someone", u"10 characters");
            n.Text(bank.wave, kTextComments, u"");
            n.Text(bank.wave, kTextImage, u"");
            n.Text(bank.wave, kTextImage, u"yes");
            n.Name(bank.wave, u"w");
            n.Param(bank.wave, kParamWaveRate, 44100, 44000);
            n.Param(bank.wave, kParamWaveRootKey, 61, 61);
            n.Dropped(bank.wave, u"no room");
        }),
        (std::vector<std::string>{"near Artist: Someone with a name -> Someone", "lost Image: image/jpeg ->",
                                  "near Waveform sample rate: 44100 Hz -> 44000 Hz", "lost Waveform: w ->"}));
    EXPECT_EQ(notes.KeptOf(u"Name"), 1u);
    EXPECT_EQ(notes.KeptOf(u"Image"), 1u);
    EXPECT_EQ(notes.KeptOf(u"Root key"), 1u);
    EXPECT_EQ(notes.all[3].topic, NoteTopic::Waveform);
    EXPECT_EQ(notes.all[3].reason, u"no room");
}

TEST(ConversionNotes, NothingIsToldToHostsThatWantNothing)
{
    const auto chorus = [](std::uint64_t count) {
        ConversionNote note;
        note.topic = NoteTopic::Effect;
        note.what = u"Chorus";
        note.count = count;
        return note;
    };
    Bank bank;
    NotingHost host;
    host.wants = false;
    {
        ConversionNotes notes(host);
        EXPECT_FALSE(notes.IsWanted());
        notes.Dropped(bank.wave, u"");
        notes.Name(bank.wave, u"");
        notes.Param(bank.wave, kArtPan, 0, 1);
        notes.Add({});
    }
    EXPECT_TRUE(host.notes.empty());
    host.wants = true;
    {
        ConversionNotes notes(host);
        notes.Add(chorus(3));
        notes.Add(chorus(1));
        EXPECT_TRUE(host.notes.empty()) << "what was kept waits";
    }
    EXPECT_EQ(host.notes, std::vector<ConversionNote>{chorus(4)});
}

} // namespace
} // namespace vimbo
