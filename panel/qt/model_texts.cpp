// SPDX-License-Identifier: MIT
#include "panel/qt/model_texts.h"

#include <QCoreApplication>
#include <QRegularExpression>
#include <QStringList>

#include <vector>

namespace quorel {

namespace {

constexpr const char* context = "PanelModel";

// %1 to %4 are put in as they are: numbers, names, what the system says. From %5 on it is a text of this list again. The first that
// fits counts.
// NOLINTBEGIN(bugprone-suspicious-missing-comma): the longer ones take several lines
constexpr const char* const texts[] = {
    // The effect, its settings and presets
    QT_TRANSLATE_NOOP("PanelModel", "no effect is running"),
    QT_TRANSLATE_NOOP("PanelModel", "cannot look for the effect: %1"),
    QT_TRANSLATE_NOOP("PanelModel", "the effect's control block is smaller than it has to be"),
    QT_TRANSLATE_NOOP("PanelModel", "other programs that change the settings give this one no turn: %1"),
    QT_TRANSLATE_NOOP("PanelModel", "the effect could not be signalled"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 is not a number from %2 to %3, nor one of %4 dB"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 is not a number from %2 to %3"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 takes numbers from %2 to %3, not %4"),
    QT_TRANSLATE_NOOP("PanelModel", "there is no folder for what this user's bypass keeps"),
    QT_TRANSLATE_NOOP("PanelModel", "there is no folder for this user's presets"),
    QT_TRANSLATE_NOOP("PanelModel", "there is no folder for this user's files"),
    QT_TRANSLATE_NOOP("PanelModel", "cannot make the folder %1: %2"),
    QT_TRANSLATE_NOOP("PanelModel", "cannot write %1: %5"),
    QT_TRANSLATE_NOOP("PanelModel", "\"%1\" is no name for a preset: it takes 1 to %2 letters, digits, - and _, no - in front, "
                                    "and no name of a Windows device"),
    QT_TRANSLATE_NOOP("PanelModel", "cannot read the preset %1: %5"),
    QT_TRANSLATE_NOOP("PanelModel", "\"%1\" stands in it twice"),
    QT_TRANSLATE_NOOP("PanelModel", "it is too long"),
    QT_TRANSLATE_NOOP("PanelModel", "it has to hold \"settings\" and nothing else"),
    QT_TRANSLATE_NOOP("PanelModel", "a preset has no setting \"%1\""),
    QT_TRANSLATE_NOOP("PanelModel", "%1 takes a whole number"),
    QT_TRANSLATE_NOOP("PanelModel", "it is no JSON"),

    // Sounds
    QT_TRANSLATE_NOOP("PanelModel", "there is no process to be had for %1"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 is not installed; it comes with PipeWire"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 has failed: %2"),

    // Responses that are delivered
    QT_TRANSLATE_NOOP("PanelModel",
                      "the delivered set has responses of %1 values instead of 1024: the effect refuses every block; "
                      "hrtf clear ends this"),
    QT_TRANSLATE_NOOP("PanelModel", "the delivered set is for %1 channels, the stream has %2: if it is a speaker's, the effect "
                                    "refuses every block; hrtf clear ends this"),
    QT_TRANSLATE_NOOP("PanelModel", "the built-in set was brought back for %1 channels, the stream has %2: if it is a speaker's "
                                    "and still holds a delivered set, the effect refuses every block; hrtf clear --channels %3 "
                                    "ends this"),
    QT_TRANSLATE_NOOP("PanelModel",
                      "Not delivered: a set is for a stream of all eight speakers (7.1) at 48000 Hz, and none runs."),
    QT_TRANSLATE_NOOP("PanelModel", "Scaled by %1 dB. Cut of the energy: at most %2 %, at %5."),
    QT_TRANSLATE_NOOP("PanelModel", "Delivered to the effect."),
    QT_TRANSLATE_NOOP("PanelModel", "A microphone's stream began last: a speakers' stream of fewer than eight channels would "
                                    "refuse every block."),
    QT_TRANSLATE_NOOP("PanelModel", "The built-in responses are in force."),
    QT_TRANSLATE_NOOP("PanelModel", "No delivered set is in force."),
    QT_TRANSLATE_NOOP("PanelModel", "A set for %1 channels was delivered as well: while a stream of so many refuses every block, "
                                    "restore the built-in responses once more."),

    // What an import took
    QT_TRANSLATE_NOOP("PanelModel", "fourteen channels of %1 frames at %2 Hz"),
    QT_TRANSLATE_NOOP("PanelModel", "%5 at %1 Hz; taken (degrees from the speaker): %6"),
    QT_TRANSLATE_NOOP("PanelModel", "equalised by the mean of all directions, each ear by its own, from %1 to %2 dB; as measured "
                                    "at most %3 % would be cut, at %5"),
    QT_TRANSLATE_NOOP("PanelModel", "equalised by the mean of all directions, both ears alike, from %1 to %2 dB; as measured at "
                                    "most %3 % would be cut, at %5"),
    QT_TRANSLATE_NOOP("PanelModel", "left out, as they hold a value that is no number: %5"),
    QT_TRANSLATE_NOOP("PanelModel", "colour against the built-in set, in dB from 63 Hz to 16 kHz: %1"),

    // Why one is refused
    QT_TRANSLATE_NOOP("PanelModel", "cannot read %1: %5"),
    QT_TRANSLATE_NOOP("PanelModel", "cannot use %1: %5"),
    QT_TRANSLATE_NOOP("PanelModel", "cannot resample: %1"),
    QT_TRANSLATE_NOOP("PanelModel", "not a regular file"),
    QT_TRANSLATE_NOOP("PanelModel", "not a regular file or a pipe"),
    QT_TRANSLATE_NOOP("PanelModel", "neither WAV, RF64, W64, FLAC, AIFF nor CAF"),
    QT_TRANSLATE_NOOP("PanelModel", "it breaks off: %1 bytes that its header tells of are missing"),
    QT_TRANSLATE_NOOP("PanelModel", "it breaks off: its header tells of no samples, and %1 bytes follow"),
    QT_TRANSLATE_NOOP("PanelModel", "it breaks off"),
    QT_TRANSLATE_NOOP("PanelModel", "it ends after %1 of %2 frames"),
    QT_TRANSLATE_NOOP("PanelModel", "it is empty"),
    QT_TRANSLATE_NOOP("PanelModel", "it has more than %1 MiB"),
    QT_TRANSLATE_NOOP("PanelModel", "it has %1 channels and does not name their speakers"),
    QT_TRANSLATE_NOOP("PanelModel", "it has %1 channel; a set of responses has 14, a pair for each speaker"),
    QT_TRANSLATE_NOOP("PanelModel", "it has %1 channels; a set of responses has 14, a pair for each speaker"),
    QT_TRANSLATE_NOOP("PanelModel", "its responses are longer than %1 frames"),
    QT_TRANSLATE_NOOP("PanelModel", "its responses have %1 frame, and that of a head has at least %2"),
    QT_TRANSLATE_NOOP("PanelModel", "its responses have %1 frames, and that of a head has at least %2"),
    QT_TRANSLATE_NOOP("PanelModel", "its channels are in another order: %5 would be louder at the far ear"),
    QT_TRANSLATE_NOOP("PanelModel", "its ears are swapped: %5 and %6 would be louder at the far ears"),
    QT_TRANSLATE_NOOP("PanelModel", "it has no measurement within %1 degrees of %5, at azimuth %2"),
    QT_TRANSLATE_NOOP("PanelModel", "the delay of %5 is no number of frames"),
    QT_TRANSLATE_NOOP("PanelModel", "the response of %5 holds a value that is no number"),
    QT_TRANSLATE_NOOP("PanelModel", "the response of %5 is silent"),
    QT_TRANSLATE_NOOP("PanelModel", "the set's values are too large"),
    QT_TRANSLATE_NOOP("PanelModel", "its arrays do not fit together"),
    QT_TRANSLATE_NOOP("PanelModel", "its sample rate is none from 8000 to 768000 Hz"),
    QT_TRANSLATE_NOOP("PanelModel", "it is no SOFA file of the convention SimpleFreeFieldHRIR with FIR data"),
    QT_TRANSLATE_NOOP("PanelModel", "it is no SOFA file of the convention SimpleFreeFieldHRIR that can be read"),
    QT_TRANSLATE_NOOP("PanelModel", "it is no SOFA file"),
    QT_TRANSLATE_NOOP("PanelModel", "it is of another convention than SimpleFreeFieldHRIR"),
    QT_TRANSLATE_NOOP("PanelModel", "it is damaged, or its HDF5 is of a form that libmysofa cannot read: that of the netCDF "
                                    "library is read"),
    QT_TRANSLATE_NOOP("PanelModel", "its dimensions are not those of two ears and one source"),
    QT_TRANSLATE_NOOP("PanelModel", "its measurements have different sample rates"),
    QT_TRANSLATE_NOOP("PanelModel", "its receivers are not a left and a right ear"),
    QT_TRANSLATE_NOOP("PanelModel", "there is too little memory"),
    QT_TRANSLATE_NOOP("PanelModel", "it takes more than %1 s of the processor's time"),
    QT_TRANSLATE_NOOP("PanelModel", "it takes more than %1 s"),
    QT_TRANSLATE_NOOP("PanelModel", "it gives more than %1 bytes"),
    QT_TRANSLATE_NOOP("PanelModel", "it ends what reads it: %1"),
    QT_TRANSLATE_NOOP("PanelModel", "it ends what reads it"),
    QT_TRANSLATE_NOOP("PanelModel", "what reads the file answers nonsense"),

    // What quorel-live tells
    QT_TRANSLATE_NOOP("PanelModel", "server: connected, %1 reconnects, scheduling %2, bypass on"),
    QT_TRANSLATE_NOOP("PanelModel", "server: connected, %1 reconnects, scheduling %2, bypass off"),
    QT_TRANSLATE_NOOP("PanelModel", "server: gone, waiting for it, %1 reconnects, scheduling %2, bypass on"),
    QT_TRANSLATE_NOOP("PanelModel", "server: gone, waiting for it, %1 reconnects, scheduling %2, bypass off"),
    QT_TRANSLATE_NOOP("PanelModel", "speaker: no device linked, running, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "speaker: no device linked, idle, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "speaker: %1, running, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "speaker: %1, idle, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "microphone: no device linked, running, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "microphone: no device linked, idle, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "microphone: %1, running, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "microphone: %1, idle, %5"),
    QT_TRANSLATE_NOOP("PanelModel", "  graph at %1 Hz, drift %2 ppm, quantum %3, blocks of %4"),
    QT_TRANSLATE_NOOP("PanelModel", "  latency: %1 frames (%2 ms) added, %3 ms to the device"),
    QT_TRANSLATE_NOOP("PanelModel", "  load: %1 % of the period, worst %2 %; gaps: %3 (%4 frames)"),
    QT_TRANSLATE_NOOP("PanelModel", "  refused blocks: %1; bad samples: %2; changes of the block: %3, %4 frames lost in them"),
    QT_TRANSLATE_NOOP("PanelModel", "quorel-live answers what is no status"),
    QT_TRANSLATE_NOOP("PanelModel", "XDG_RUNTIME_DIR is not set: there is no place for this user's running programs"),
    QT_TRANSLATE_NOOP("PanelModel", "the program at %1 does not answer"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 is too long for a socket's name"),

    // Words and parts of the above
    QT_TRANSLATE_NOOP("PanelModel", "%1 to %2 Hz"),
    QT_TRANSLATE_NOOP("PanelModel", "no frequencies"),
    QT_TRANSLATE_NOOP("PanelModel", "mono"),
    QT_TRANSLATE_NOOP("PanelModel", "stereo"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 channels"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 direction"),
    QT_TRANSLATE_NOOP("PanelModel", "%1 directions"),
    QT_TRANSLATE_NOOP("PanelModel", "%5, %6"),
    QT_TRANSLATE_NOOP("PanelModel", "%5 (interpolated)"),
    QT_TRANSLATE_NOOP("PanelModel", "off"),
    QT_TRANSLATE_NOOP("PanelModel", "left ear"),
    QT_TRANSLATE_NOOP("PanelModel", "right ear"),
    QT_TRANSLATE_NOOP("PanelModel", "front left"),
    QT_TRANSLATE_NOOP("PanelModel", "front right"),
    QT_TRANSLATE_NOOP("PanelModel", "front centre"),
    QT_TRANSLATE_NOOP("PanelModel", "low frequency"),
    QT_TRANSLATE_NOOP("PanelModel", "back left"),
    QT_TRANSLATE_NOOP("PanelModel", "back right"),
    QT_TRANSLATE_NOOP("PanelModel", "side left"),
    QT_TRANSLATE_NOOP("PanelModel", "side right"),
    QT_TRANSLATE_NOOP("PanelModel", "front left %1"),
    QT_TRANSLATE_NOOP("PanelModel", "front right %1"),
    QT_TRANSLATE_NOOP("PanelModel", "front centre %1"),
    QT_TRANSLATE_NOOP("PanelModel", "back left %1"),
    QT_TRANSLATE_NOOP("PanelModel", "back right %1"),
    QT_TRANSLATE_NOOP("PanelModel", "side left %1"),
    QT_TRANSLATE_NOOP("PanelModel", "side right %1"),
};
// NOLINTEND(bugprone-suspicious-missing-comma)

constexpr char firstOfList = '5'; // place that holds a text of the list

struct Pattern {
    const char* source;
    QRegularExpression form; // a group for each place
    QString places;          // their digits, in order
};

std::vector<Pattern> allPatterns()
{
    static const QRegularExpression place("%([1-9])");
    std::vector<Pattern> patterns;
    for (const char* source : texts) {
        QString form;
        QString places;
        const QString whole = source;
        qsizetype done = 0;
        for (auto each = place.globalMatch(whole); each.hasNext();) {
            const auto match = each.next();
            form += QRegularExpression::escape(whole.mid(done, match.capturedStart() - done)) + "(.+?)";
            places += match.captured(1);
            done = match.capturedEnd();
        }
        form += QRegularExpression::escape(whole.mid(done));
        patterns.push_back({source, QRegularExpression(QRegularExpression::anchoredPattern(form)), places});
    }
    return patterns;
}

QString translatedLine(const QString& line)
{
    static const std::vector<Pattern> patterns = allPatterns();
    for (const Pattern& pattern : patterns) {
        const auto match = pattern.form.match(line);
        if (!match.hasMatch())
            continue;
        const QString form = QCoreApplication::translate(context, pattern.source);
        QString text;
        for (qsizetype i = 0; i < form.size(); ++i) {
            const qsizetype group = form[i] == '%' && i + 1 < form.size() ? pattern.places.indexOf(form[i + 1]) : -1;
            if (group < 0) {
                text += form[i];
                continue;
            }
            const QString part = match.captured(static_cast<int>(group) + 1);
            text += form[++i] < firstOfList ? part : translatedLine(part);
        }
        return text;
    }
    return line;
}

} // namespace

QString translated(const std::string& text)
{
    QStringList lines = QString::fromStdString(text).split('\n');
    for (QString& line : lines)
        line = translatedLine(line);
    return lines.join('\n');
}

} // namespace quorel
