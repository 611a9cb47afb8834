// Makes what a display shows of films, on a thread of its own: neither who renders nor the window waits for it.
#pragma once

#include "Engine/Render/FrameLoop.h"
#include "Engine/World/Tone.h"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace oxbeam {

// What of the film is shown: the colours, or one of its layers.
enum class Shows { Color, Depth, Normal, Albedo, Object };
// Their names, in the order of the enumeration.
const std::vector<std::string>& showsNames();

struct Look {
    Tone tone, otherTone;  // that of what is compared with
    Shows shows = Shows::Color;

    bool operator==(const Look&) const = default;
};

// Of what a film is.
struct FrameInfo {
    ImageSize whole;       // of the picture at rest
    unsigned divider = 1;  // of this one
    unsigned samples = 1;  // passes that there are to be
    View view;
    float fov = 40.0f;
    std::uint64_t number = 0;  // of the frame, from 1
    bool other = false;        // of what is compared with
};

// A picture as the window shows it.
struct Shown {
    FrameInfo frame;
    std::shared_ptr<const Film> film;
    unsigned passes = 0;             // complete
    unsigned width = 0, height = 0;  // of the pixels
    std::vector<std::uint8_t> rgba;
    std::array<std::array<unsigned, 128>, 3> histogram{};  // of what is shown, by channel
    std::uint64_t serial = 0;                              // another for every picture

    bool coarse() const { return frame.divider > 1; }
};

class Developer {
public:
    Developer();
    ~Developer();
    Developer(const Developer&) = delete;
    Developer& operator=(const Developer&) = delete;

    // For the window.
    void setLook(const Look& look);
    // Null before there is any; the same until there is another.
    std::shared_ptr<const Shown> latest(bool other = false) const;

    // For the thread that renders. While a frame is looked at, its film is shown as it grows; nobody looks while `begin`
    // makes it another.
    template <class Begin>
    void look(FrameLoop& loop, const FrameInfo& frame, Begin begin) {
        const std::lock_guard lock(m_frameMutex);
        begin();
        m_loop = &loop;
        m_frame = frame;
    }
    void lookAway();
    // The film that is looked at has a pass more, and is to be shown now.
    void passDone();
    // What is to be shown although its frame ends now; the next one before it was has its place.
    void give(Film film, const FrameInfo& frame);

private:
    void run();
    using Taken = std::optional<std::pair<Film, FrameInfo>>;
    Taken takeFilm(bool evenTheSame);
    void take(Taken taken, const Look& look);
    void redevelop(bool other, const Look& look);
    void develop(std::shared_ptr<const Film> film, const FrameInfo& frame, const Look& look);

    mutable std::mutex m_mutex;  // of all that follows
    std::condition_variable m_wake;
    bool m_ending = false, m_due = false, m_lookChanged = false;
    Look m_look;
    std::array<Taken, 2> m_given;  // and the other
    std::array<std::shared_ptr<const Shown>, 2> m_latest;

    std::mutex m_frameMutex;  // of the frame that is looked at
    FrameLoop* m_loop = nullptr;
    FrameInfo m_frame;

    std::uint64_t m_serial = 0, m_takenFrame = 0;  // of this thread's alone, as what follows
    unsigned m_takenPasses = 0;
    std::array<std::shared_ptr<const Shown>, 2> m_coarse;
    // Given back to the system here, which takes its time, once no display shows them.
    std::vector<std::shared_ptr<const Shown>> m_retired;
    std::thread m_thread;
};

}  // namespace oxbeam
