// SPDX-License-Identifier: MIT
#include "panel/qt/window.h"

#include "client/preset.h"
#include "panel/qt/controls.h"
#include "panel/qt/model_texts.h"
#include "speaker/equalizer_tables.h"
#include "speaker/speaker_tables.h"
#include "tools/level_display.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QSignalBlocker>
#include <QSystemTrayIcon>
#include <QTabWidget>
#include <QVBoxLayout>

#include <utility>

namespace quorel {

namespace {

QString bandName(std::size_t band)
{
    const double hz = equalizerCentres.at(band);
    return hz < 1000 ? QString::number(hz) : QString::number(hz / 1000) + "k";
}

QString layoutName(std::uint32_t speakers)
{
    switch (speakers) {
    case 0x3:
        return PanelWindow::tr("stereo");
    case 0x3F:
    case 0x60F:
        return PanelWindow::tr("5.1");
    case everySpeaker:
        return PanelWindow::tr("7.1");
    default:
        return PanelWindow::tr("speakers 0x%1").arg(speakers, 0, 16);
    }
}

QString lateText(const PanelSession::Lateness& late)
{
    const QString effect = PanelWindow::tr("%1 ms of it by noise reduction").arg(late.effectMs, 0, 'f', 1);
    if (late.hostMs)
        return PanelWindow::tr("Your voice comes %1 ms late, %2.").arg(*late.hostMs + late.effectMs, 0, 'f', 1).arg(effect);
    return late.effectMs > 0 ? PanelWindow::tr("Noise reduction makes your voice %1 ms late.").arg(late.effectMs, 0, 'f', 1)
                             : PanelWindow::tr("The effect makes your voice no later.");
}

QString sideText(const QString& name, const LiveSide& side)
{
    if (!side.running)
        return PanelWindow::tr("%1: idle").arg(name);
    return PanelWindow::tr("%1: %2 at %3 Hz, quantum %4, load %5 %, %6 gaps")
        .arg(name, QString::fromStdString(side.device))
        .arg(side.framesPerSecond)
        .arg(side.quantum)
        .arg(side.load, 0, 'f', 1)
        .arg(side.gaps);
}

} // namespace

QIcon panelIcon()
{
    QPixmap picture(64, 64);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(0x2a, 0x7f, 0xa8), 7, Qt::SolidLine, Qt::RoundCap));
    painter.drawArc(QRect(10, 8, 44, 52), 0, 180 * 16);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x2a, 0x7f, 0xa8));
    painter.drawRoundedRect(4, 32, 14, 26, 6, 6);
    painter.drawRoundedRect(46, 32, 14, 26, 6, 6);
    return QIcon(picture);
}

PanelWindow::PanelWindow(bool withTray)
    : session([this](PanelSession::News news) {
          QMetaObject::invokeMethod(
              this, [this, news] { take(news); }, Qt::QueuedConnection); // through the event loop
      })
{
    setWindowTitle(tr("QUOREL"));
    setWindowIcon(QIcon::fromTheme("quorel-panel", panelIcon()));
    setAcceptDrops(true);

    pages = new QTabWidget;
    pages->addTab(speakerPage(), tr("&Speaker"));
    pages->addTab(microphonePage(), tr("&Microphone"));
    pages->addTab(statePage(), tr("&What runs"));
    connect(pages, &QTabWidget::currentChanged, this, [this] { watch(); });
    message = new QLabel;
    message->setObjectName("message");
    message->setAccessibleName(tr("Message"));
    message->setWordWrap(true);
    message->hide();

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(6, 6, 6, 6);
    column->addWidget(head());
    column->addWidget(pages, 1);
    column->addWidget(message);
    resize(860, 560);

    addShortcut("Ctrl+Z", [this] { attempt(&PanelModel::undo); });
    addShortcut("Ctrl+Shift+Z", [this] { attempt(&PanelModel::redo); });
    addShortcut("Ctrl+B", [this] { bypass(!bypassButton->isChecked()); });
    addShortcut("Ctrl+D", [this] { attempt(&PanelModel::compare); });
    addShortcut("Ctrl+S", [this] {
        if (session.model().presetName().empty())
            saveAs();
        else
            attempt([](PanelModel& model) { model.savePreset(model.presetName()); });
    });
    showEffectLevels();
    if (withTray)
        addTray();
    refresh();
    refreshState();
    showResponses();
}

PanelWindow::~PanelWindow() = default;

// ---- What it is made of ---------------------------------------------------------------------------------------------

QWidget* PanelWindow::head()
{
    auto* widget = new QWidget;
    auto* row = new QHBoxLayout(widget);
    row->setContentsMargins(0, 0, 0, 0);
    state = new QLabel;
    state->setObjectName("state");
    state->setAccessibleName(tr("What runs"));
    state->setWordWrap(true);
    row->addWidget(state, 1);

    const auto button = [&](const char* name, const QString& text, const QString& meaning, const Edit& action) {
        auto* made = new QPushButton(text);
        made->setObjectName(name);
        made->setAccessibleName(meaning);
        made->setToolTip(meaning);
        if (action)
            connect(made, &QPushButton::clicked, this, [this, action] { attempt(action); });
        row->addWidget(made);
        return made;
    };
    presetButton = button("preset", {}, tr("Preset"), {});
    auto* menu = new QMenu(presetButton);
    connect(menu, &QMenu::aboutToShow, this, [this, menu] { fillPresets(*menu); });
    presetButton->setMenu(menu);
    undoButton = button("undo", tr("&Undo"), tr("Undo (Ctrl+Z)"), &PanelModel::undo);
    redoButton = button("redo", tr("R&edo"), tr("Redo (Ctrl+Shift+Z)"), &PanelModel::redo);
    compareButton = button("compare", {}, tr("Compare two choices (Ctrl+D)"), &PanelModel::compare);
    bypassButton = button("bypass", tr("&Bypass"), tr("Bypass: all that settings can turn off (Ctrl+B)"), {});
    bypassButton->setCheckable(true);
    QFont large = bypassButton->font();
    large.setBold(true);
    bypassButton->setFont(large);
    connect(bypassButton, &QPushButton::clicked, this, [this](bool on) { bypass(on); });
    return widget;
}

QWidget* PanelWindow::speakerPage()
{
    auto* page = new QWidget;
    auto* columns = new QHBoxLayout(page);
    columns->setContentsMargins(4, 4, 4, 4);

    auto* equalizer = new QGroupBox(tr("Equaliser"));
    auto* left = new QVBoxLayout(equalizer);
    left->setContentsMargins(4, 4, 4, 4);
    curve = new CurveView;
    fields.emplace_back([this] {
        std::array<std::int64_t, EqualizerCurve::bands> settings{};
        for (std::size_t band = 0; band < settings.size(); ++band)
            settings.at(band) = session.model().shown(*settingsField("EQBand" + std::to_string(band + 1)));
        curve->show(settings);
    });
    left->addWidget(curve, 1);
    auto* bands = new QHBoxLayout;
    bands->setSpacing(2);
    for (std::size_t band = 0; band < EqualizerCurve::bands; ++band)
        addBand(*bands, band);
    left->addLayout(bands, 1);
    columns->addWidget(equalizer, 3);

    auto* right = new QVBoxLayout;
    right->addWidget(addSwitch("Settings", tr("Su&rround sound")));
    addLevel(*right, "Reverb", tr("Re&verb"));
    testButton = new QPushButton(tr("S&peaker test"));
    testButton->setObjectName("speakerTest");
    testButton->setAccessibleName(tr("Speaker test: each speaker says its name from its place"));
    testButton->setToolTip(tr("Each speaker says its name from its place"));
    testButton->setCheckable(true);
    connect(testButton, &QPushButton::clicked, this, [this](bool on) {
        session.testSpeakers(on);
        refresh();
    });
    right->addWidget(testButton);

    auto* group = new QGroupBox(tr("Head-related responses"));
    auto* inside = new QVBoxLayout(group);
    responses = new QLabel;
    responses->setObjectName("responses");
    responses->setWordWrap(true);
    inside->addWidget(responses);
    auto* buttons = new QHBoxLayout;
    importButton = new QPushButton(tr("&Import…"));
    importButton->setObjectName("import");
    importButton->setToolTip(tr("A SOFA file, or a WAV file of fourteen channels. It can be dropped here as well."));
    connect(importButton, &QPushButton::clicked, this, [this] { chooseFile(); });
    buttons->addWidget(importButton);
    auto* builtIn = new QPushButton(tr("Bu&ilt in"));
    builtIn->setObjectName("builtIn");
    builtIn->setToolTip(tr("Bring the built-in responses back"));
    connect(builtIn, &QPushButton::clicked, this, [this] { importFile({}); });
    buttons->addWidget(builtIn);
    inside->addLayout(buttons);
    QStringList names;
    for (const char* name : speakerNames)
        names += translated(name);
    speaker = new Choice(tr("Speaker whose responses are shown"), names, [this](std::int64_t) { showResponses(); });
    speaker->setObjectName("shownSpeaker");
    inside->addWidget(speaker);
    responseView = new ResponseView;
    inside->addWidget(responseView, 1);
    report = new QPlainTextEdit;
    report->setObjectName("report");
    report->setAccessibleName(tr("Report of the import"));
    report->setReadOnly(true);
    report->setTabChangesFocus(true);
    report->setPlaceholderText(tr("What an import took, cut or refused is told here."));
    inside->addWidget(report, 1);
    right->addWidget(group, 1);
    columns->addLayout(right, 2);
    return page;
}

QWidget* PanelWindow::microphonePage()
{
    auto* page = new QWidget;
    auto* columns = new QHBoxLayout(page);
    auto* left = new QVBoxLayout;
    left->addWidget(addSwitch("MicNR", tr("&Noise reduction")));

    const SettingsField& field = *settingsField("micEq");
    auto* curves = new Choice(tr("Curve"), {tr("off"), tr("Warm: lows +13 dB, highs +4 dB"), tr("Clear: nothing below 200 Hz")},
                              [edit = editorOf(field)](std::int64_t value) { edit(value, false); });
    curves->setObjectName(field.name);
    auto* label = new QLabel(tr("&Curve"));
    label->setBuddy(curves);
    left->addWidget(label);
    left->addWidget(curves);
    fields.emplace_back([this, &field, curves] { curves->show(session.model().shown(field)); });

    addLevel(*left, "noiseGate", tr("Noise &gate, opens at"));
    late = new QLabel;
    late->setObjectName("late");
    late->setAccessibleName(tr("How late the voice is"));
    late->setWordWrap(true);
    left->addWidget(late);
    left->addStretch(1);
    left->addWidget(ownVoice());
    columns->addLayout(left, 2);
    columns->addWidget(effectLevels());

    auto* group = new QGroupBox(tr("Levels in dB, from so many Hz on"));
    auto* row = new QHBoxLayout(group);
    for (std::size_t k = 0; k < meters.size(); ++k) {
        auto* column = new QVBoxLayout;
        meters.at(k) = new Meter(tr("Level of band %1").arg(k + 1));
        meters.at(k)->setObjectName(QString("level%1").arg(k + 1));
        meterTexts.at(k) = new QLabel;
        meterTexts.at(k)->setAlignment(Qt::AlignCenter);
        column->addWidget(meters.at(k), 1);
        column->addWidget(meterTexts.at(k));
        row->addLayout(column);
    }
    columns->addWidget(group, 3);
    return page;
}

QWidget* PanelWindow::ownVoice()
{
    auto* group = new QGroupBox(tr("Hear yourself"));
    auto* column = new QVBoxLayout(group);
    auto* row = new QHBoxLayout;
    listening = new QCheckBox(tr("&Listen to myself after"));
    listening->setObjectName("listen");
    listening->setToolTip(tr("What the microphone hears is played on the default device. Wear the headphones for it."));
    const auto listen = [this] {
        session.listen(listening->isChecked() ? std::optional(secondsLate()) : std::nullopt);
        refresh();
    };
    connect(listening, &QCheckBox::clicked, this, listen);
    row->addWidget(listening, 1);
    QStringList delays;
    for (int half = 1; half <= 6; ++half)
        delays += tr("%1 s").arg(0.5 * half, 0, 'f', 1);
    delay = new Choice(tr("How much later"), delays, [this, listen](std::int64_t) {
        if (session.listening())
            listen();
    });
    delay->setObjectName("delay");
    delay->show(1);
    row->addWidget(delay);
    column->addLayout(row);
    before = new QCheckBox(tr("B&efore: without the three above"));
    before->setObjectName("before");
    before->setToolTip(tr("Turns noise reduction, curve and gate off, for all who hear you, and back on"));
    connect(before, &QCheckBox::clicked, this, [this](bool on) {
        session.hearBefore(on);
        refresh();
    });
    column->addWidget(before);
    return group;
}

double PanelWindow::secondsLate() const
{
    return 0.5 * (delay->currentIndex() + 1);
}

QWidget* PanelWindow::effectLevels()
{
    auto* group = new QGroupBox(tr("Effect"));
    auto* column = new QVBoxLayout(group);
    auto* row = new QHBoxLayout;
    const std::array<QString, 2> names = {tr("in"), tr("out")};
    const std::array<QString, 2> meanings = {tr("Level into the effect"), tr("Level out of the effect")};
    for (std::size_t k = 0; k < names.size(); ++k) {
        auto* one = new QVBoxLayout;
        effectMeters.at(k) = new Meter(meanings.at(k));
        effectMeters.at(k)->setObjectName(k == 0 ? "levelIn" : "levelOut");
        effectMeters.at(k)->setToolTip(meanings.at(k));
        auto* caption = new QLabel(names.at(k));
        caption->setAlignment(Qt::AlignCenter);
        one->addWidget(effectMeters.at(k), 1);
        one->addWidget(caption);
        row->addLayout(one);
    }
    column->addLayout(row, 1);
    takenAway = new QLabel;
    takenAway->setObjectName("takenAway");
    takenAway->setAccessibleName(tr("What the effect takes away"));
    takenAway->setAlignment(Qt::AlignCenter);
    takenAway->setMinimumWidth(takenAway->fontMetrics().horizontalAdvance("-100 dB"));
    column->addWidget(takenAway);
    return group;
}

QWidget* PanelWindow::statePage()
{
    details = new QPlainTextEdit;
    details->setObjectName("details");
    details->setAccessibleName(tr("What runs"));
    details->setReadOnly(true);
    details->setTabChangesFocus(true);
    return details;
}

QCheckBox* PanelWindow::addSwitch(const char* name, const QString& text)
{
    const SettingsField& field = *settingsField(name);
    auto* box = new QCheckBox(text);
    box->setObjectName(name);
    connect(box, &QCheckBox::clicked, this, [edit = editorOf(field)](bool on) { edit(on ? 1 : 0, false); });
    fields.emplace_back([this, &field, box] { box->setChecked(session.model().shown(field) != 0); });
    return box;
}

void PanelWindow::addBand(QHBoxLayout& row, std::size_t band)
{
    const SettingsField& field = *settingsField("EQBand" + std::to_string(band + 1));
    const QString name = tr("Equaliser at %1 Hz").arg(equalizerCentres.at(band));
    auto* fader = new Fader(field, name, Qt::Vertical, editorOf(field));
    auto* box = new ValueBox(
        field, tr("%1, typed").arg(name), [edit = editorOf(field)](std::int64_t value) { edit(value, false); },
        [this](const QString& text) { tell(text); });
    auto* caption = new QLabel(bandName(band));
    caption->setAlignment(Qt::AlignCenter);
    auto* column = new QVBoxLayout;
    column->addWidget(box, 0, Qt::AlignHCenter);
    column->addWidget(fader, 1, Qt::AlignHCenter);
    column->addWidget(caption);
    row.addLayout(column);
    fields.emplace_back([this, &field, fader, box] {
        fader->show(session.model().shown(field));
        box->show(session.model().shown(field));
    });
}

void PanelWindow::addLevel(QVBoxLayout& column, const char* name, const QString& text)
{
    const SettingsField& field = *settingsField(name);
    QString plain = text;
    plain.remove('&');
    auto* fader = new Fader(field, plain, Qt::Horizontal, editorOf(field));
    auto* box = new ValueBox(
        field, tr("%1, typed").arg(plain), [edit = editorOf(field)](std::int64_t value) { edit(value, false); },
        [this](const QString& refusal) { tell(refusal); });
    auto* label = new QLabel(text);
    label->setBuddy(fader);
    auto* row = new QHBoxLayout;
    row->addWidget(fader, 1);
    row->addWidget(box);
    column.addWidget(label);
    column.addLayout(row);
    fields.emplace_back([this, &field, fader, box] {
        fader->show(session.model().shown(field));
        box->show(session.model().shown(field));
    });
}

void PanelWindow::addTray()
{
    tray = new QSystemTrayIcon(windowIcon(), this);
    auto* menu = new QMenu(this);
    menu->addAction(tr("&Show the panel"), this, [this] {
        show();
        activateWindow();
    });
    trayBypass = menu->addAction(tr("&Bypass"));
    trayBypass->setCheckable(true);
    connect(trayBypass, &QAction::triggered, this, [this](bool on) { bypass(on); });
    auto* presetMenu = menu->addMenu(tr("&Presets"));
    connect(presetMenu, &QMenu::aboutToShow, this, [this, presetMenu] { fillPresets(*presetMenu); });
    menu->addSeparator();
    menu->addAction(tr("&Quit"), qApp, &QApplication::quit);
    // A hidden panel does not look, and what its menu does must not rest on an old look.
    connect(menu, &QMenu::aboutToShow, this, [this] { session.watch(true, false); });
    connect(menu, &QMenu::aboutToHide, this, [this] { watch(); });
    tray->setContextMenu(menu);
    tray->setToolTip(tr("QUOREL"));
    connect(tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            setVisible(!isVisible());
    });
    tray->show();
    QApplication::setQuitOnLastWindowClosed(false);
}

void PanelWindow::addShortcut(const char* keys, std::function<void()> action)
{
    connect(new QShortcut(QKeySequence(keys), this), &QShortcut::activated, this, std::move(action));
}

void PanelWindow::fillPresets(QMenu& menu)
{
    menu.clear();
    std::vector<std::string> names;
    attempt([&](PanelModel&) { names = presets(); });
    const PanelModel& model = session.model();
    for (const std::string& name : names) {
        auto* action = menu.addAction(QString::fromStdString(name), this,
                                      [this, name] { attempt([&](PanelModel& changed) { changed.loadPreset(name); }); });
        action->setCheckable(true);
        action->setChecked(name == model.presetName());
    }
    menu.addSeparator();
    const bool named = !model.presetName().empty();
    const auto save = [this] { attempt([](PanelModel& saved) { saved.savePreset(saved.presetName()); }); };
    menu.addAction(tr("&Save"), this, save)->setEnabled(named);
    menu.addAction(tr("Save &as…"), this, [this] { saveAs(); });
    menu.addAction(tr("&Revert"), this, [this] { attempt(&PanelModel::revert); })->setEnabled(named && model.changed());
}

// ---- What its user does ---------------------------------------------------------------------------------------------

std::function<void(std::int64_t, bool)> PanelWindow::editorOf(const SettingsField& field)
{
    return [this, &field](std::int64_t value, bool joined) {
        attempt([&](PanelModel& model) { model.edit(field, value, joined ? PanelModel::Step::joined : PanelModel::Step::own); });
    };
}

void PanelWindow::attempt(const Edit& edit)
{
    session.attempt(edit);
    refresh();
}

void PanelWindow::bypass(bool on)
{
    session.bypass(on);
    refresh();
}

void PanelWindow::tell(const QString& text)
{
    session.tell(text.toStdString());
    showMessage();
}

void PanelWindow::showMessage()
{
    const QString text = translated(session.message());
    if (message->text() != text)
        message->setText(text);
    message->setVisible(!text.isEmpty());
}

void PanelWindow::saveAs()
{
    auto* dialog = new QInputDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(tr("Save as a preset"));
    dialog->setLabelText(tr("Name, of letters, digits, - and _"));
    dialog->setTextValue(QString::fromStdString(session.model().presetName()));
    connect(dialog, &QInputDialog::textValueSelected, this,
            [this](const QString& name) { attempt([&](PanelModel& model) { model.savePreset(name.toStdString()); }); });
    dialog->open();
}

void PanelWindow::chooseFile()
{
    auto* dialog = new QFileDialog(this, tr("Import responses"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters({tr("Responses (*.sofa *.wav)"), tr("All files (*)")});
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) { importFile(path); });
    dialog->open();
}

void PanelWindow::showPage(int page)
{
    pages->setCurrentIndex(page);
}

void PanelWindow::importFile(const QString& path)
{
    if (!session.import(path.toStdString()))
        return;
    importButton->setEnabled(false);
    report->setPlainText(path.isEmpty() ? tr("Bringing the built-in responses back…") : tr("Reading %1…").arg(path));
}

void PanelWindow::dragEnterEvent(QDragEnterEvent* event)
{
    const auto urls = event->mimeData()->urls();
    if (urls.size() == 1 && urls.first().isLocalFile())
        event->acceptProposedAction();
}

void PanelWindow::dropEvent(QDropEvent* event)
{
    const auto urls = event->mimeData()->urls();
    if (urls.size() == 1 && urls.first().isLocalFile()) {
        event->acceptProposedAction();
        pages->setCurrentIndex(0);
        importFile(urls.first().toLocalFile());
    }
}

// ---- What is seen ---------------------------------------------------------------------------------------------------

void PanelWindow::take(PanelSession::News news)
{
    const bool changed = session.take(news);
    if (news == PanelSession::News::effect)
        showLevels();
    if (news == PanelSession::News::live)
        showEffectLevels();
    if (news == PanelSession::News::import) {
        const ImportReport& imported = session.imported();
        importButton->setEnabled(true);
        report->setPlainText((imported.path.empty() ? QString() : QString::fromStdString(imported.path) + "\n") +
                             translated(imported.text));
        showResponses();
    }
    if (changed) {
        refresh();
        refreshState();
    }
}

void PanelWindow::refresh()
{
    for (const auto& show : fields)
        show();
    showMessage();
    const PanelModel& model = session.model();
    const bool usable = model.usable();
    pages->widget(0)->setEnabled(usable);
    pages->widget(1)->setEnabled(usable);
    undoButton->setEnabled(usable && model.canUndo());
    redoButton->setEnabled(usable && model.canRedo());
    compareButton->setEnabled(usable);
    compareButton->setText(model.side() == 'A' ? tr("&A | b") : tr("&a | B"));
    presetButton->setEnabled(usable);
    presetButton->setText(
        model.presetName().empty() ? tr("&Preset") : QString::fromStdString(model.presetName()) + (model.changed() ? " *" : ""));

    const bool bypassed = session.bypassed();
    bypassButton->setEnabled(usable);
    bypassButton->setChecked(bypassed);
    bypassButton->setText(bypassed ? tr("&Bypassed") : tr("&Bypass"));
    testButton->setChecked(session.testingSpeakers());
    listening->setChecked(session.listening());
    before->setChecked(session.hearingBefore());
    if (trayBypass != nullptr)
        trayBypass->setChecked(bypassed);
}

void PanelWindow::refreshState()
{
    const PanelModel& model = session.model();
    const EffectView& view = model.seen();
    const LiveView host = session.live();
    const bool streaming = model.usable() && view.framesPerSecond > 0;
    QString text;
    if (host.state == LiveView::State::mute)
        text = tr("quorel-live does not answer. ");
    switch (view.state) {
    case EffectView::State::absent:
        text += tr("No effect is running. Start quorel-live, or choose the headset with the effect as the sound device.");
        break;
    case EffectView::State::hidden:
        text += translated(view.trouble);
        break;
    case EffectView::State::there:
        if (host.headphones || host.microphone) {
            QStringList sides;
            if (host.headphones)
                sides += sideText(tr("Headphones, %1").arg(layoutName(host.speakers.value_or(0))), *host.headphones);
            if (host.microphone)
                sides += sideText(tr("Microphone"), *host.microphone);
            text += sides.join("\n");
        } else if (!streaming) {
            text += tr("The effect is there, and no stream so far: play something on its device.");
        } else {
            text += tr("Running at %1 Hz, %2")
                        .arg(static_cast<double>(view.framesPerSecond))
                        .arg(view.microphone ? tr("a microphone's stream") : layoutName(view.channelMask));
        }
        break;
    }
    if (model.bypassed())
        text += "\n" + tr("Bypassed by settings: the down-mix to stereo, the limiters and a gain of 0.8 stay.");
    state->setText(text);
    const QString told = host.state == LiveView::State::there ? translated(host.text)
                         : host.state == LiveView::State::mute
                             ? tr("quorel-live: %1").arg(translated(host.text))
                             : tr("No quorel-live is running, which would tell load, latency and gaps.");
    if (details->toPlainText() != told) // a text that is set anew loses its selection
        details->setPlainText(told);

    late->setText(lateText(session.lateness()));

    const std::uint32_t identity = view.settings.hrtfId;
    responses->setText(identity == 0 ? tr("In use: the built-in set")
                       : !view.responsesFile.empty()
                           ? tr("In use: %1").arg(QFileInfo(QString::fromStdString(view.responsesFile)).fileName())
                           : tr("In use: a set that another program delivered"));
    if (identity != shownIdentity)
        showResponses();
    if (!view.refusal.empty())
        responses->setText(responses->text() + ". " + translated(view.refusal));
}

void PanelWindow::showResponses()
{
    shownIdentity = session.model().seen().settings.hrtfId;
    const auto taps = session.responses();
    responseView->setVisible(taps.has_value());
    speaker->setVisible(taps.has_value());
    if (taps)
        responseView->show(taps->at(static_cast<std::size_t>(std::max(speaker->currentIndex(), 0))));
}

void PanelWindow::showLevels()
{
    if (pages->currentIndex() != 1)
        return;
    const auto seconds = session.levelsDue();
    if (!seconds)
        return;
    const PanelModel& model = session.model();
    const std::uint32_t rate = session.levelRate();
    if (rate != meterRate) {
        const auto captions = levelCaptions(meterRate = rate);
        for (std::size_t k = 0; k < meters.size(); ++k) {
            const QString caption = QString::fromStdString(captions.at(k)).simplified();
            const QString told = translated(caption.toStdString());
            meters.at(k)->setToolTip(told);
            meters.at(k)->setAccessibleName(tr("Level at %1").arg(told));
            meterTexts.at(k)->setText(caption.section(' ', 0, 0));
        }
    }
    for (std::size_t k = 0; k < meters.size(); ++k)
        meters.at(k)->show(model.usable() ? static_cast<double>(model.seen().levels.at(k)) : MeterLevel::lowest, *seconds);
}

// What is not told is shown as no level.
void PanelWindow::showEffectLevels()
{
    const auto& levels = session.microphoneLevels();
    constexpr double interval = 0.5; // seconds between two answers
    effectMeters[0]->show(levels ? levels->inDb : MeterLevel::lowest, interval);
    effectMeters[1]->show(levels ? levels->outDb : MeterLevel::lowest, interval);
    QString text = tr("not told");
    if (levels)
        text = tr("%1 dB").arg(levels->outDb - levels->inDb, 0, 'f', 0);
    takenAway->setText(text);
    takenAway->setToolTip(levels ? tr("What comes out against what goes in, over the last half second")
                                 : tr("Only quorel-live tells what goes in and comes out, while its microphone is in use."));
}

void PanelWindow::watch()
{
    session.watch(isVisible() && !isMinimized(), pages->currentIndex() == 1);
    refresh(); // what is unseen plays no sound any more
}

void PanelWindow::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    watch();
}

void PanelWindow::hideEvent(QHideEvent* event)
{
    QWidget::hideEvent(event);
    watch();
}

void PanelWindow::changeEvent(QEvent* event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange)
        watch();
}

void PanelWindow::closeEvent(QCloseEvent* event)
{
    event->accept(); // with a tray the panel stays there, without one it ends with its window
}

} // namespace quorel
