// SPDX-License-Identifier: MIT
// PanelWindow shows the panel's model and hands it what its user does. It waits for nobody: what may take long is
// the session's, whose news come through the event loop.
#pragma once

#include "panel/panel_session.h"

#include <QCoreApplication>
#include <QWidget>

#include <array>
#include <functional>
#include <vector>

class QAction;
class QCheckBox;
class QHBoxLayout;
class QLabel;
class QMenu;
class QPlainTextEdit;
class QPushButton;
class QSystemTrayIcon;
class QTabWidget;
class QVBoxLayout;

namespace quorel {

class CurveView;
class Choice;
class Meter;
class ResponseView;

class PanelWindow : public QWidget {
    Q_DECLARE_TR_FUNCTIONS(quorel::PanelWindow)

public:
    // withTray: an icon in the desktop's tray, and the window's closing only hides it.
    explicit PanelWindow(bool withTray);
    ~PanelWindow() override;

    void showPage(int page); // 0 the speakers, 1 the microphone, 2 what runs

    // Delivers the responses of a file; without a path the built-in ones come back.
    void importFile(const QString& path);

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    using Edit = std::function<void(PanelModel&)>;

    QWidget* head();
    QWidget* speakerPage();
    QWidget* microphonePage();
    QWidget* ownVoice();
    QWidget* effectLevels();
    QWidget* statePage();
    void addTray();
    void addShortcut(const char* keys, std::function<void()> action);
    void fillPresets(QMenu& menu);

    QCheckBox* addSwitch(const char* name, const QString& text);
    void addBand(QHBoxLayout& row, std::size_t band);
    void addLevel(QVBoxLayout& column, const char* name, const QString& text);
    std::function<void(std::int64_t, bool)> editorOf(const SettingsField& field);

    void attempt(const Edit& edit); // and shows what came of it
    void bypass(bool on);
    void tell(const QString& text);
    void showMessage();
    void saveAs();
    void chooseFile();

    void take(PanelSession::News news);
    void refresh(); // all that shows the model
    void refreshState();
    void showLevels();
    void showEffectLevels();
    double secondsLate() const; // of one's own voice, as chosen
    void showResponses();
    void watch();

    std::vector<std::function<void()>> fields; // each shows one field anew
    std::uint32_t shownIdentity = 0;           // of the responses that are shown

    QLabel* state = nullptr;
    QPushButton* presetButton = nullptr;
    QPushButton* compareButton = nullptr;
    QPushButton* undoButton = nullptr;
    QPushButton* redoButton = nullptr;
    QPushButton* bypassButton = nullptr;
    QTabWidget* pages = nullptr;
    CurveView* curve = nullptr;
    QPushButton* testButton = nullptr;
    QLabel* responses = nullptr;
    QPushButton* importButton = nullptr;
    Choice* speaker = nullptr; // whose responses are shown
    ResponseView* responseView = nullptr;
    QPlainTextEdit* report = nullptr;
    std::array<Meter*, 9> meters{};
    std::array<QLabel*, 9> meterTexts{};
    std::array<Meter*, 2> effectMeters{}; // what goes into the effect, what comes out
    QLabel* takenAway = nullptr;
    QLabel* late = nullptr;
    QCheckBox* listening = nullptr;
    Choice* delay = nullptr;
    QCheckBox* before = nullptr;
    std::uint32_t meterRate = 0; // frames per second for which the texts stand
    QPlainTextEdit* details = nullptr;
    QLabel* message = nullptr;
    QSystemTrayIcon* tray = nullptr;
    QAction* trayBypass = nullptr;

    PanelSession session; // last: its threads end before what they announce to
};

// The panel's icon, for the tray and the window.
QIcon panelIcon();

} // namespace quorel
