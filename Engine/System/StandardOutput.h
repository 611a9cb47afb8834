// A file that goes to standard output.
#pragma once

#include "Engine/System/StoredFile.h"

#include <cstdint>
#include <vector>

namespace oxbeam {

// Takes standard output for itself: whatever else is printed from then on goes to standard error. The bytes are kept
// until they are complete, since some come after those that follow them. A reader that is gone is an error like any
// other, no signal.
class OXBEAM_API StandardOutput : public FileSink {
public:
    // Throws Error(Usage) where it is a terminal, which no picture is for.
    StandardOutput();
    ~StandardOutput() override;
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    void write(std::span<const unsigned char> bytes) override;
    void seek(std::uint64_t position) override { m_position = position; }
    std::uint64_t position() const override { return m_position; }
    std::uint64_t size() const override { return m_bytes.size(); }
    void finish() override;

private:
    int m_descriptor;
    std::uint64_t m_position = 0;
    std::vector<unsigned char> m_bytes;
};

}  // namespace oxbeam
