#include "Apps/oxbeam/Checkpointing.h"

#include "Apps/oxbeam/Metadata.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <new>

namespace oxbeam {

std::optional<Begun> Checkpointing::begun(const RenderOptions& options) {
    const std::string& file = m_command.checkpoint;
    const bool begunBefore =
        !m_command.frame || std::filesystem::exists(file);  // of a sequence, some frames are not yet
    if (!m_command.resume || !begunBefore) {
        if (!file.empty() && std::filesystem::exists(file))
            std::cerr << fmt::format(
                "oxbeam: warning: '{}' exists and will be replaced; --resume would go on from it\n", file);
        return std::nullopt;
    }
    Checkpoint checkpoint(file);
    std::optional<Begun> begun = begunIn(checkpoint, options);
    follow(checkpoint);
    return begun;
}

Begun Checkpointing::begunIn(Checkpoint& checkpoint, const RenderOptions& options) const {
    const std::string file = checkpoint.name();
    requireSameInputs(checkpoint.text(InputsName), m_inputs, file);
    if (options.aovs && !checkpoint.hasAovs())
        throw Error(ExitStatus::Usage, fmt::format("cannot resume from '{}' with --aov: it was begun without", file));
    const Window whole{0, 0, m_world.image.width, m_world.image.height};
    Begun begun = checkpoint.begun(options.crop.value_or(whole));
    if (const unsigned most = begun.film.begunPasses(); most > options.samples)
        throw Error(ExitStatus::Usage, fmt::format("cannot resume from '{}' for {} passes: it holds {} already; "
                                                   "--samples or --time asks for more",
                                                   file, options.samples, most));
    return begun;
}

void Checkpointing::attachTo(RenderOptions& options) {
    if (m_command.checkpoint.empty()) return;
    options.saveEvery = m_command.checkpointEvery;
    options.save = [this](const Film& film, const RenderStatistics& counted) { save(film, counted); };
}

void Checkpointing::warn(const char* message) {
    if (!m_failing) std::cerr << fmt::format("oxbeam: warning: {}\n", message);
    m_failing = true;
}

// Whatever goes wrong, the picture is worth more.
bool Checkpointing::save(const Film& film, const RenderStatistics& counted) {
    if (m_command.checkpoint.empty()) return true;
    try {
        Attributes attributes = attributesOf(m_command, m_world, m_inputs, film, seconds());
        attributes[InputsName] = inputsText(m_inputs);
        if (addTo) addTo(attributes, counted);
        writeCheckpoint(m_command.checkpoint, m_world.image, film, attributes);
        m_failing = false;
    } catch (const Error& e) {
        warn(e.what());
    } catch (const std::bad_alloc&) {
        warn(cannotWrite(m_command.checkpoint, "out of memory").what());
    } catch (const std::exception& e) {
        warn(cannotWrite(m_command.checkpoint, e.what()).what());
    }
    return !m_failing;
}

}  // namespace oxbeam
