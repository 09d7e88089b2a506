// Compares what `vimbo` says of SFZ instruments with what an independent reader, the node package
// "@sfz-tools/core", makes of the same texts: the samples, key and velocity ranges, root keys, tuning, level, pan,
// offsets and loops of all regions, as multisets.
//   node scripts/compare_sfz.mjs WITNESS FILE_OR_FOLDER...             both read SFZ texts
//   node scripts/compare_sfz.mjs WITNESS --bank BANK                   BANK is written in the four SFZ forms; the
//                                                                      texts are compared with it, and read back
// WITNESS is the folder in which the package was installed. VIMBO names another build of the program, VERBOSE=1
// lists what differs. Missing samples of texts are replaced by silence in a copy of the folder, so that their
// regions are compared too. Exit status 1: something differs that the witness is not known to read wrongly.
import { execFileSync } from "node:child_process";
import { createRequire } from "node:module";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";

const [witness, ...rest] = process.argv.slice(2);
const here = path.dirname(new URL(import.meta.url).pathname);
const vimbo = process.env.VIMBO ?? path.join(here, "../build/release/bin/vimbo");
const parser = path.join(witness ?? "", "node_modules/@sfz-tools/core/dist/parse.js");
if (!fs.existsSync(parser) || !fs.existsSync(vimbo)) {
    console.log(`skipped: ${fs.existsSync(vimbo) ? "@sfz-tools/core is not installed there" : "no vimbo"}`);
    process.exit(0);
}
const require = createRequire(path.resolve(parser));
const verbose = process.env.VERBOSE === "1";
const scratch = fs.mkdtempSync(path.join(os.tmpdir(), "vimbo-sfz."));
process.on("exit", () => fs.rmSync(scratch, { recursive: true, force: true }));

const counts = new Map();
const count = (what, by = 1) => counts.set(what, (counts.get(what) ?? 0) + by);
let wrong = 0;

function run(args) {
    return execFileSync(vimbo, args, { encoding: "utf8", maxBuffer: 1 << 30, stdio: ["ignore", "pipe", "ignore"] });
}

/// `vimbo info --json` of all files; those that cannot be read have only an error.
function info(files) {
    const all = [];
    for (let i = 0; i < files.length; i += 200) {
        let text;
        try {
            text = run(["info", "-q", "--json", ...files.slice(i, i + 200)]);
        } catch (error) {
            text = error.stdout;
        }
        all.push(...JSON.parse(text));
    }
    return all;
}

// What both sides are brought to: one record per region.

const kFields = ["sample", "lowKey", "highKey", "lowVelocity", "highVelocity", "root", "cents", "dB", "pan", "start", "end",
                 "loop", "loopStart", "loopEnd"];
const kTolerance = { cents: 0.02, dB: 0.002, pan: 0.05, loopStart: 1, loopEnd: 1 };
const kOff = "off";

const stemOf = (file) => path.basename(file).replace(/\.[^.]*$/, "");

function ofInstrument(file, instrument) {
    const waves = new Map(file.waveforms.map((wave) => [wave.name, wave]));
    const regions = [];
    for (const layer of instrument.layers)
        for (const region of layer.regions) {
            const wave = waves.get(region.waveform);
            if (!wave)
                continue;
            const value = (name) => (region.parameters[name] ?? layer.parameters[name] ?? instrument.parameters[name])?.value ?? 0;
            const loop = { ...wave.loop, ...region.loop };
            const isLooped = loop.type !== kOff;
            regions.push({
                sample: stemOf(wave.texts.source ?? wave.name), frames: wave.frames,
                file: wave.texts.source, channels: wave.channels,
                lowKey: region.lowKey, highKey: region.highKey,
                lowVelocity: region.lowVelocity, highVelocity: region.highVelocity,
                root: region.rootKey,
                cents: value("Master tuning Pitch adjustment") * 100 + wave.fineTune,
                dB: value("Master Volume adjustment") + wave.volume,
                pan: value("Pan position"),
                start: region.startOffset, end: wave.frames + region.endOffset,
                loop: isLooped ? loop.release : kOff,
                loopStart: isLooped ? loop.start : 0, loopEnd: isLooped ? loop.end : 0,
            });
        }
    return regions;
}

const kNotes = { c: 0, d: 2, e: 4, f: 5, g: 7, a: 9, b: 11 };
function keyOf(value) {
    const note = /^([a-g])([#b]?)(-?\d+)$/i.exec(String(value));
    if (!note)
        return Number(value);
    const step = note[2] === "#" ? 1 : note[2] ? -1 : 0;
    return kNotes[note[1].toLowerCase()] + step + 12 * (Number(note[3]) + 1);
}

/// Opcodes in the order in which the witness merged them, under one name each.
function opcodesOf(merged) {
    const aliases = { loopmode: "loop_mode", loopstart: "loop_start", loopend: "loop_end", pitch: "tune", gain: "volume",
                      pitch_oncc135: "tune_random", tune_oncc135: "tune_random" };
    const all = {};
    for (const [raw, value] of Object.entries(merged)) {
        const name = raw.trim().toLowerCase();
        if (name === "key")
            for (const each of ["lokey", "hikey", "pitch_keycenter"])
                all[each] = value;
        else
            all[aliases[name] ?? name] = value;
    }
    return all;
}

/// Null for a region that plays nothing; `why` is counted then.
function ofWitness(merged, folder, framesOf) {
    const op = opcodesOf(merged);
    const skip = (why) => (count(`  witness: regions without sound (${why})`), null);
    if (op.sample === undefined || op.sample === "")
        return skip("no sample");
    const sample = String(op.sample).replaceAll("\\", "/");
    if (sample.startsWith("*") || sample.includes("/*"))
        return skip("generator");
    const offset = Number(op.note_offset ?? 0) + 12 * Number(op.octave_offset ?? 0);
    const key = (name, value) => {
        const read = keyOf(op[name] ?? value);
        return op[name] !== undefined && read >= 0 ? read + offset : read;
    };
    const number = (name, value = 0) => Number.parseFloat(op[name] ?? value);
    const file = path.join(folder, sample);
    const wave = framesOf(file);
    if (!wave)
        return skip("sample is missing");
    if (key("hikey", 127) < 0 || number("end", 0) === -1 || key("lokey", 0) > 127)
        return skip("switched off");
    const clampKey = (value) => Math.min(Math.max(value, 0), 127);
    const own = wave.loop;
    const mode = op.loop_mode ?? (own.type === kOff ? "no_loop" : "loop_" + (own.release === "break" ? "sustain" : "continuous"));
    const center = op.pitch_keycenter === "sample" ? wave.rootKey : key("pitch_keycenter", 60);
    const start = Math.min(Math.max(number("loop_start", own.start), 0), wave.frames);
    const end = Math.min(op.loop_end === undefined ? own.end : Number(op.loop_end) + 1, wave.frames);
    const isLooped = String(mode).startsWith("loop_") && end > start;
    const pan = number("pan") + (60 - keyOf(op.pan_keycenter ?? 60)) * number("pan_keytrack");
    const amplitude = op.amplitude === undefined ? 0 : Math.max(20 * Math.log10(number("amplitude") / 100), -96);
    return {
        sample: stemOf(file), frames: wave.frames,
        lowKey: clampKey(key("lokey", 0)), highKey: clampKey(key("hikey", 127)),
        lowVelocity: clampKey(number("lovel", 0)), highVelocity: clampKey(number("hivel", 127)),
        root: clampKey(center),
        cents: number("transpose") * 100 + number("tune") - Math.abs(number("tune_random")) / 2,
        dB: number("volume") + number("group_volume") + number("master_volume") + number("global_volume") + amplitude +
            (60 - keyOf(op.amp_keycenter ?? 60)) * number("amp_keytrack"),
        pan: Math.min(Math.max(pan, -100), 100),
        start: Math.min(Math.max(number("offset"), 0), wave.frames),
        end: op.end === undefined ? wave.frames : Math.min(number("end") + 1, wave.frames),
        loop: !isLooped ? kOff : mode === "loop_sustain" ? "break" : "infinite",
        loopStart: isLooped ? start : 0, loopEnd: isLooped ? end : 0,
    };
}

const kMaxIncludes = 100;

/// The regions that the witness finds; a string if it fails. Its module keeps variables between files, so it is
/// loaded anew for each.
async function askWitness(file, framesOf) {
    for (const name of Object.keys(require.cache))
        if (name === path.resolve(parser))
            delete require.cache[name];
    const reader = require(path.resolve(parser));
    const folder = path.dirname(file);
    let includes = 0;
    reader.parseSetLoader((name) => {
        if (++includes > kMaxIncludes) // it follows circles for ever
            throw new Error("includes go in a circle");
        return fs.readFileSync(path.resolve("/", name), "utf8"); // it drops the first slash
    });
    try {
        const text = fs.readFileSync(file, "utf8").replace(/^\uFEFF/, "");
        const headers = await reader.parseSfz(text, folder + "/");
        const merged = Array.isArray(headers) ? reader.parseHeaders(headers) : [];
        return { headers, all: merged.length, regions: merged.map((each) => ofWitness(each, folder, framesOf)).filter(Boolean) };
    } catch (error) {
        return String(error.message);
    }
}

// Comparing.

const compareRegions = (a, b) => {
    for (const field of kFields)
        if (a[field] !== b[field] && kTolerance[field] === undefined)
            return a[field] < b[field] ? -1 : 1;
    return a.cents - b.cents || a.dB - b.dB;
};
const isSame = (field, a, b) => (typeof a === "number" ? Math.abs(a - b) <= (kTolerance[field] ?? 0) : a === b);

/// Fields in which the regions differ, and how often; "regions" if their number does.
function differences(ours, theirs) {
    const found = new Map();
    if (ours.length !== theirs.length)
        return new Map([["regions", `${ours.length} / ${theirs.length}`]]);
    const [left, right] = [[...ours].sort(compareRegions), [...theirs].sort(compareRegions)];
    left.forEach((region, i) => {
        for (const field of kFields)
            if (region[field] !== undefined && right[i][field] !== undefined && !isSame(field, region[field], right[i][field]))
                found.set(field, found.get(field) ?? `${region[field]} / ${right[i][field]}`);
    });
    return found;
}

function tell(file, found, known) {
    if (found.size === 0)
        return count("  files equal");
    const text = [...found].map(([field, values]) => `${field} (${values})`).join(", ");
    count(known ? `  files that the witness reads differently: ${known}` : "  files that DIFFER");
    wrong += known ? 0 : 1;
    if (verbose || !known)
        console.log(`${known ? "known" : "DIFFERS"}: ${file}: ours / witness: ${text}${known ? " [" + known + "]" : ""}`);
}

// Texts that are there.

function silence(frames) {
    const wav = Buffer.alloc(44 + frames * 2);
    wav.write("RIFF", 0), wav.writeUInt32LE(36 + frames * 2, 4), wav.write("WAVEfmt ", 8), wav.writeUInt32LE(16, 16);
    wav.writeUInt16LE(1, 20), wav.writeUInt16LE(1, 22), wav.writeUInt32LE(44100, 24), wav.writeUInt32LE(88200, 28);
    wav.writeUInt16LE(2, 32), wav.writeUInt16LE(16, 34), wav.write("data", 36), wav.writeUInt32LE(frames * 2, 40);
    return wav;
}

/// What `vimbo` says of sample files, each looked at once.
function waveTeller() {
    const known = new Map();
    return (file) => {
        if (!known.has(file)) {
            const said = fs.existsSync(file) && fs.statSync(file).isFile() ? info([file])[0] : {};
            known.set(file, said.waveforms?.[0]);
        }
        return known.get(file);
    };
}

/// Why the witness is known to read a text differently; "" if it should read it alike.
function limitOfWitness(headers) {
    const isControl = (header) => header.name === "control";
    const isKept = Array.isArray(headers) && headers.filter(isControl).length > 1;
    return isKept ? "default_path adds up over several <control>" : "";
}

async function compareTexts(roots) {
    const files = [];
    for (const root of roots) {
        const copy = path.join(scratch, String(files.length), path.basename(root));
        fs.cpSync(root, copy, { recursive: true });
        const walk = (at) => fs.statSync(at).isDirectory() ? fs.readdirSync(at).sort().forEach((name) => walk(path.join(at, name)))
            : at.toLowerCase().endsWith(".sfz") && files.push(at);
        walk(copy);
    }
    const framesOf = waveTeller();
    for (const file of files) { // missing samples
        const said = await askWitness(file, (sample) => {
            const isFile = !fs.existsSync(sample) && /\.\w+$/.test(sample) && sample.startsWith(scratch);
            if (isFile) {
                fs.mkdirSync(path.dirname(sample), { recursive: true });
                fs.writeFileSync(sample, silence(100000));
                count("  sample files put in");
            }
        });
        if (typeof said === "string")
            count("  witness failed");
    }
    counts.delete("  witness: regions without sound (sample is missing)");
    for (const name of [...counts.keys()])
        if (name.startsWith("  witness: "))
            counts.delete(name);
    const said = info(files);
    count("SFZ texts", files.length);
    for (const [i, file] of files.entries()) {
        const theirs = await askWitness(file, framesOf);
        const name = path.relative(scratch, file);
        if (typeof theirs === "string" || said[i].error) {
            console.log(`FAILED: ${name}: ${said[i].error ?? "witness: " + theirs}`);
            count("  files that only one reads");
            continue;
        }
        const ours = said[i].instruments.flatMap((instrument) => ofInstrument(said[i], instrument));
        count("  regions of the witness", theirs.all);
        count("  regions of vimbo", ours.length);
        tell(name, differences(ours, theirs.regions), limitOfWitness(theirs.headers));
    }
}

// Banks written as SFZ.

const kRows = [389, 390, 391, 392];

async function compareBank(bank) {
    const said = info([bank])[0];
    if (said.error) {
        console.log(`${path.basename(bank)}: ${said.error}`);
        return count("banks that vimbo does not read");
    }
    const byPlace = new Map(said.instruments.map((each) => [`${each.drum ? "d" : ""}${each.bankMsb}-${each.bankLsb}-${each.program}`, each]));
    for (const row of kRows) {
        const folder = path.join(scratch, `${row}`);
        try {
            run(["convert", "-q", bank, "-t", String(row), "--name-mode", "program", "-o", folder + "/"]);
        } catch {
            return count("banks without an instrument");
        }
        const files = fs.readdirSync(folder).filter((name) => name.endsWith(".sfz")).sort().map((name) => path.join(folder, name));
        const framesOf = waveTeller();
        const back = info(files);
        // The loops and lengths of all samples at once: asking for each takes a process.
        const waves = new Map(back.flatMap((file) => file.waveforms.map((wave) => [wave.texts.source, { ...wave, loop: { type: kOff } }])));
        const waveOf = (file) => waves.get(file) ?? framesOf(file);
        count(`${path.basename(bank)}: texts`, files.length);
        for (const [i, file] of files.entries()) {
            const place = path.basename(file).split(" - ")[0];
            const from = byPlace.get(place);
            const theirs = await askWitness(file, waveOf);
            const name = `${path.basename(bank)} as row ${row}, ${path.basename(file)}`;
            if (typeof theirs === "string" || !from || back[i].error) {
                console.log(`DIFFERS: ${name}: ${theirs} ${from} ${back[i].error}`);
                ++wrong;
                continue;
            }
            count("  regions", theirs.all);
            const ours = back[i].instruments.flatMap((each) => ofInstrument(back[i], each));
            const isJoined = (region) => region.channels === 2 && framesOf(region.file)?.channels === 1;
            const pairs = ours.filter(isJoined).length;
            const known = pairs > 0 && ours.length + pairs === theirs.regions.length ? "mono pairs, which vimbo joins" : "";
            tell(`${name}, read back`, differences(ours, theirs.regions), known);
            const inBank = ofInstrument(said, from).map((region) => ({ ...region, sample: undefined }));
            const written = theirs.regions.map((region) => ({ ...region, sample: undefined }));
            tell(`${name}, bank`, differences(inBank, written), "");
            if (theirs.all !== theirs.regions.length)
                console.log(`DIFFERS: ${name}: ${theirs.all - theirs.regions.length} regions without a sample`), ++wrong;
        }
        fs.rmSync(folder, { recursive: true });
    }
}

if (rest[0] === "--bank")
    for (const bank of rest.slice(1))
        await compareBank(path.resolve(bank));
else
    await compareTexts(rest.map((each) => path.resolve(each)));
for (const [what, number] of counts)
    console.log(`${what}: ${number}`);
console.log(wrong === 0 ? "No difference" : `${wrong} differences`);
process.exitCode = wrong === 0 ? 0 : 1;
