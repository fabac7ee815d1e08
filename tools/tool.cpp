#include "tools/tool.h"

#include <csignal>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace quorel {

namespace {

volatile std::sig_atomic_t interrupt = 0; // the signal that asked us to stop, 0 none

struct Interrupted {};

void watchInterrupts()
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        sigaction(signal, nullptr, &old);
        if (old.sa_handler == SIG_IGN) // started to run on regardless, as by nohup
            continue;
        struct sigaction action {};
        action.sa_handler = [](int received) { interrupt = received; };
        action.sa_flags = SA_RESTART;
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGXFSZ, SIG_IGN); // a write beyond the limit fails like any other
}

// Ends the process by the signal itself, so that who started it sees why.
int endBy(int signal)
{
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return 128 + signal;
}

} // namespace

int runTool(CLI::App& tool, int argc, char** argv, const std::function<void()>& body)
{
    watchInterrupts();
    try {
        tool.parse(argc, argv);
        body();
        return 0;
    } catch (const CLI::Success& request) { // help or version
        return tool.exit(request);
    } catch (const Interrupted&) {
        return endBy(interrupt);
    } catch (const std::exception& error) {
        notice(tool, error.what());
        return 2;
    }
}

void stopIfInterrupted()
{
    if (interrupt != 0)
        throw Interrupted();
}

void notice(const CLI::App& tool, const std::string& text)
{
    std::cerr << tool.get_name() << ": " << text << '\n';
}

void tellSpeed(const CLI::App& tool, double sound, std::chrono::duration<double> taken)
{
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << sound << " s of sound in " << std::setprecision(3) << taken.count()
         << " s: " << std::setprecision(0) << sound / taken.count() << " times real time";
    notice(tool, text.str());
}

bool onTerminal() noexcept
{
    return isatty(STDERR_FILENO) == 1;
}

std::function<std::string(const std::string&)> numberFrom(std::int64_t low, std::int64_t high)
{
    return [low, high](const std::string& given) {
        char* end = nullptr;
        const double number = std::strtod(given.c_str(), &end);
        const bool whole = end != given.c_str() && *end == '\0';
        const bool inside = whole && number >= static_cast<double>(low) && number <= static_cast<double>(high);
        return inside ? std::string() : given + " is not a number from " + std::to_string(low) + " to " + std::to_string(high);
    };
}

Progress::Progress(std::optional<std::uint64_t> frames)
{
    if (frames && onTerminal())
        bar.emplace(*frames, std::cerr, "");
}

Progress::~Progress()
{
    if (bar && bar->count() < bar->expected_count())
        std::cerr << '\n';
}

void Progress::advance(std::uint64_t frames)
{
    if (bar)
        *bar += frames;
}

} // namespace quorel
