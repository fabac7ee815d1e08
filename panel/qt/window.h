// SPDX-License-Identifier: MIT
// PanelWindow shows the panel's model and hands it what its user does. It waits for nobody: what may take long has threads of its
// own, whose news come through the event loop.
#pragma once

#include "panel/effect_link.h"
#include "panel/live_watch.h"
#include "panel/panel_model.h"
#include "panel/response_import.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QWidget>

#include <array>
#include <atomic>
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
    // withTray: an icon in the desktop's tray, if it has one; the window's closing then hides it.
    explicit PanelWindow(bool withTray);
    ~PanelWindow() override;

    void showPage(int page); // 0 the speakers, 1 the microphone, 2 what runs

    // Delivers the responses of a file; without a path the built-in ones come back.
    void importFile(const QString& path);

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    using Edit = std::function<void()>;

    QWidget* head();
    QWidget* speakerPage();
    QWidget* microphonePage();
    QWidget* statePage();
    void addTray();
    void addShortcut(const char* keys, Edit action);
    void fillPresets(QMenu& menu);

    QCheckBox* addSwitch(const char* name, const QString& text);
    void addBand(QHBoxLayout& row, std::size_t band);
    void addLevel(QVBoxLayout& column, const char* name, const QString& text);
    std::function<void(std::int64_t, bool)> editorOf(const SettingsField& field);

    void attempt(const Edit& edit); // what it throws is told; what it changed is sent
    void keep();                    // the file that a bypass leaves, as the model has it
    void tell(const QString& text);
    void saveAs();
    void chooseFile();
    void bypass(bool on);

    std::function<void()> announcing(std::atomic<bool>& announced, void (PanelWindow::*news)());
    void effectNews();
    void liveNews();
    void importNews();
    void refresh(); // all that shows the model
    void refreshState();
    void showLevels();
    void showResponses();
    void watch();

    PanelModel model;
    Values savedKept;                          // as the file has them
    std::vector<std::function<void()>> fields; // each shows one field anew
    ImportReport imported;
    std::uint32_t shownIdentity = 0; // of the responses that are shown
    QElapsedTimer sinceLevels;

    QLabel* state = nullptr;
    QPushButton* presetButton = nullptr;
    QPushButton* compareButton = nullptr;
    QPushButton* undoButton = nullptr;
    QPushButton* redoButton = nullptr;
    QPushButton* bypassButton = nullptr;
    QTabWidget* pages = nullptr;
    CurveView* curve = nullptr;
    QLabel* responses = nullptr;
    QPushButton* importButton = nullptr;
    Choice* speaker = nullptr; // whose responses are shown
    ResponseView* responseView = nullptr;
    QPlainTextEdit* report = nullptr;
    std::array<Meter*, 9> meters{};
    std::array<QLabel*, 9> meterTexts{};
    std::uint32_t meterRate = 0; // frames per second for which the texts stand
    QPlainTextEdit* details = nullptr;
    QLabel* message = nullptr;
    QSystemTrayIcon* tray = nullptr;
    QAction* trayBypass = nullptr;

    std::atomic<bool> effectAnnounced = false; // news that the window has not yet looked at
    std::atomic<bool> liveAnnounced = false;
    std::atomic<bool> importAnnounced = false;
    ResponseImport responseImport;
    LiveWatch live;
    EffectLink link;
};

// The panel's icon, for the tray and the window.
QIcon panelIcon();

} // namespace quorel
