#include "Apps/oxbeam/PictureOptions.h"

#include "Apps/oxbeam/SharedOptions.h"
#include "Apps/oxbeam/Usage.h"

#include <fmt/format.h>

namespace oxbeam {

static void addSequence(CLI::App& c, RenderCommand& r) {
    SequenceCommand& s = r.sequence;
    c.add_option("--frames", s.frames, "Render a sequence, with {frame:04} for the number in the output's name")
        ->type_name("A..B[/STEP]");
    c.add_option("--only", s.only, "Some frames of the sequence, as 7,9..12, with the very same bits")
        ->type_name("FRAMES");
    c.add_option("--turntable", s.turntable, "Go round the model or scene in so many frames")->type_name("N");
    addRepeated(c, "--animate", s.animate, "Change a parameter over time, as light.0.intensity=[0,0,0]..[9,9,9]@smooth")
        ->type_name("PLACE.PARAM=FROM..TO[@ease]");
    c.add_option("--clip", s.clip, "Play this animation of the model's file: its name or number")->type_name("NAME");
    c.add_option("--fps", s.fps, "Frames per second: frame F shows second F/FPS; 24 by default")->type_name("FPS");
    c.add_option("--duration", s.duration, "How long the sequence is, from second 0 on")->type_name("SECONDS");
}

void addPictureOptions(CLI::App& c, RenderCommand& r) {
    addModelOptions(c, r.model);
    c.add_option("--size", r.size, "Size in pixels, instead of the scene's")->type_name("WxH");
    c.add_option("--camera", r.camera, "One of the scene's named cameras, or of a model's own; 'file': its first")
        ->type_name("CAMERA");
    c.add_option("--samples", r.samples, "Passes over the picture, instead of the scene's")->type_name("N");
    c.add_option("--aov", r.aov, "Layers beside the picture, in an EXR")
        ->type_name("depth,normal,albedo,object,samples");
    addSettings(c, r.set);
    c.add_option("--bits", r.bits, "Bits per channel of a PNG or TIFF, 8 or 16")->type_name("8|16");
    c.add_option("--exposure", r.exposure, "Of a PNG, JPEG or TIFF: brightness in EV, each of which doubles the light")
        ->type_name("EV");
    c.add_option("--tone", r.tone, "Of a PNG, JPEG or TIFF: how light beyond white is brought into range")
        ->type_name("none|filmic|neutral");
    c.add_option("--filter", r.filter, "The pixels' filter")->type_name("box|gaussian|blackman-harris");
    c.add_option("--filter-width", r.filterWidth, "Its width, instead of the usual one")->type_name("PIXELS");
    c.add_flag("--packets", r.packets,
               "Shade primary rays four at a time where camera, lights and shaders offer it: a fast preview");
    c.add_option("--isa", r.isa, "Instruction set to trace with: sse2, sse4.2, avx (all alike), avx2 or avx512")
        ->type_name("sse2|sse4.2|avx|avx2|avx512");
    addSequence(c, r);
    addImportLimit(c, r.importLimit);
}

// An app of its own has the options alone.
std::vector<std::string> pictureWords(const CLI::App& app) {
    RenderCommand unused;
    CLI::App known;
    addPictureOptions(known, unused);
    std::vector<std::string> words;
    for (const CLI::Option* option : known.get_options()) {
        if (option->get_lnames().empty() || option->get_name() == "--help") continue;
        const CLI::Option* given = app.get_option_no_throw(option->get_name());
        if (!given || given->count() == 0) continue;
        if (option->get_items_expected_max() == 0) {
            words.push_back(option->get_name());
            continue;
        }
        for (const std::string& value : given->results()) words.push_back(option->get_name() + '=' + value);
    }
    return words;
}

RenderCommand pictureCommand(const std::vector<std::string>& words) {
    RenderCommand command;
    CLI::App app;
    addPictureOptions(app, command);
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::ParseError& e) {
        throw Error(ExitStatus::Usage, usageError(app, e));
    }
    return command;
}

}  // namespace oxbeam
