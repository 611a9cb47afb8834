// How a program ends when a library cannot have a thread or memory where no exception can leave it.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>
#include <string_view>
#include <system_error>

namespace oxbeam {

// For a handler of std::terminate: where the exception on its way is of the machine, says so in one line and ends with
// that status. What else goes unhandled is a fault of the program, and aborts it.
[[noreturn]] inline void endForLackOf(std::string_view prefix, int status) {
    const auto end = [&](std::string_view what) {
        const auto put = [](std::string_view text) { return write(STDERR_FILENO, text.data(), text.size()); };
        static_cast<void>(put(prefix) + put(what) + put("\n"));
        _exit(status);
    };
    if (std::current_exception()) try {
            throw;
        } catch (const std::bad_alloc&) {
            end("out of memory");
        } catch (const std::system_error& e) {
            end(e.code() == std::errc::resource_unavailable_try_again ? "out of memory or threads" : e.what());
        } catch (const std::exception& e) {
            static_cast<void>(write(STDERR_FILENO, e.what(), std::strlen(e.what())));
        } catch (...) {
        }
    std::abort();
}

}  // namespace oxbeam
