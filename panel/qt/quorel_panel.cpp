// SPDX-License-Identifier: MIT
// quorel-panel: the effects' settings, levels and responses in a window.
#include "panel/qt/window.h"
#include "tools/tool.h"

#include <QApplication>
#include <QSystemTrayIcon>
#include <QTimer>

#include <array>
#include <clocale>
#include <map>
#include <string>
#include <vector>

namespace quorel {
namespace {

const char* const description =
    R"(Shows the effects that are running in a window: their settings, the
microphone's levels, the head-related responses and what runs. Where the desktop
has a tray the panel stays there when its window is closed.
Exit code: 0 done; 2 failed, with one line on standard error that says why.)";

struct Options {
    bool hidden = false;
    bool noTray = false;
    std::string page = "speaker";
};

const std::map<std::string, int> pages = {{"speaker", 0}, {"microphone", 1}, {"running", 2}};

int run(char* name, const Options& options)
{
    int count = 1; // the options are ours, none is the toolkit's
    std::array<char*, 2> arguments = {name, nullptr};
    QApplication application(count, arguments.data());
    std::setlocale(LC_NUMERIC, "C"); // settings' texts have a point
    QApplication::setApplicationName("quorel-panel");
    QApplication::setApplicationDisplayName("QUOREL");
    QApplication::setDesktopFileName("quorel-panel");

    PanelWindow window(!options.noTray && QSystemTrayIcon::isSystemTrayAvailable());
    window.showPage(pages.at(options.page));
    if (!options.hidden || QApplication::quitOnLastWindowClosed())
        window.show();
    QTimer interrupts; // a second's wait for the end is no harm, and rare looks cost nothing
    interrupts.setTimerType(Qt::VeryCoarseTimer);
    QObject::connect(&interrupts, &QTimer::timeout, [] {
        if (platform::interrupted())
            QApplication::quit();
    });
    interrupts.start(1000);
    const int code = QApplication::exec();
    window.hide(); // what still has to be written may take its time
    stopIfInterrupted();
    return code;
}

} // namespace
} // namespace quorel

int main(int argc, char** argv)
{
    const quorel::CommandLine tool = quorel::beginTool(quorel::description, "quorel-panel");
    quorel::Options options;
    std::vector<std::string> names;
    names.reserve(quorel::pages.size());
    for (const auto& [name, number] : quorel::pages)
        names.push_back(name);
    tool.addFlag("--hidden", options.hidden, "Start in the tray, without a window");
    tool.addFlag("--no-tray", options.noTray, "Show no icon in the tray: the panel ends with its window");
    tool.add("--page", options.page, "The page to begin with: speaker, microphone or running")
        .typeName("PAGE")
        .oneOf(names)
        .defaultText("speaker");
    return quorel::runTool(tool, argc, argv, [&] { return quorel::run(argv[0], options); });
}
