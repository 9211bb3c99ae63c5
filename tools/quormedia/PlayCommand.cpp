// `quormedia play`: a window that plays a project with its sound.
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QVBoxLayout>
#include <QWidget>
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "CommandError.h"
#include "Commands.h"
#include "ProjectInput.h"
#include "codec/QVTimebase.h"
#include "playback/QVPlayerViewCtrl.h"
#include "playback/views/QVPlayerView.h"
#include "playback/views/QtMainQueue.h"
#include "project/QVProject.h"

namespace qm::cli {
namespace {

bool hasEnvironment(const char* name) {
    const char* value = std::getenv(name);
    return value && *value;
}

// A thin bar under the picture: the played share of the project, and a click seeks there.
class TimeBar : public QWidget {
public:
    explicit TimeBar(std::shared_ptr<QVProject> project) : _project(std::move(project)) {
        setFixedHeight(8);
        _observation = _project->addObserver("currentTimestamp", [this](const KeyValueChange&) { update(); });
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(rect(), QColor(40, 40, 40));
        const int64_t duration = _project->duration();
        if (duration <= 0) return;
        const double share = std::clamp(double(_project->currentTimestamp()) / double(duration), 0.0, 1.0);
        painter.fillRect(QRect(0, 0, int(share * width()), height()), QColor(230, 120, 30));
    }
    void mousePressEvent(QMouseEvent* event) override {
        const double share = std::clamp(event->position().x() / std::max(1, width()), 0.0, 1.0);
        _project->setCurrentTimestamp(int64_t(share * double(_project->duration())));
    }

private:
    std::shared_ptr<QVProject> _project;
    ObserverToken _observation;
};

// The picture over the time bar; space plays and pauses, the arrows seek by a second, Escape closes.
class PlayerWindow : public QWidget {
public:
    PlayerWindow(std::shared_ptr<QVPlayerViewCtrl> ctrl, std::shared_ptr<QVProject> project)
        : _ctrl(std::move(ctrl)), _project(std::move(project)) {
        setWindowTitle("quormedia play");
        setFocusPolicy(Qt::StrongFocus);
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->setSpacing(0);
        _view = new QVPlayerView(this);
        _view->setMinimumSize(320, 180);
        layout->addWidget(_view, 1);
        layout->addWidget(new TimeBar(_project));
        const double scale = std::min(1.0, 960.0 / double(std::max<int64_t>(1, _project->outVideoWidth())));
        resize(int(double(_project->outVideoWidth()) * scale), int(double(_project->outVideoHeight()) * scale) + 8);
        _ctrl->setView(_view);
        _ctrl->setProject(_project);
    }
    ~PlayerWindow() override {
        _ctrl->pause();
        _ctrl->setView(nullptr);
        _ctrl->setProject(nullptr);
    }

protected:
    void keyPressEvent(QKeyEvent* event) override {
        switch (event->key()) {
            case Qt::Key_Space:
                if (_ctrl->state() == 1) {
                    _ctrl->pause();
                } else {
                    if (_project->currentTimestamp() >= _project->duration()) _project->setCurrentTimestamp(0);
                    _ctrl->play();
                }
                break;
            case Qt::Key_Left:
                seekBy(-QVTimebase);
                break;
            case Qt::Key_Right:
                seekBy(QVTimebase);
                break;
            case Qt::Key_Escape:
                close();
                break;
            default:
                QWidget::keyPressEvent(event);
        }
    }

private:
    void seekBy(int64_t delta) {
        _project->setCurrentTimestamp(
            std::clamp(_project->currentTimestamp() + delta, int64_t(0), _project->duration()));
    }

    std::shared_ptr<QVPlayerViewCtrl> _ctrl;
    std::shared_ptr<QVProject> _project;
    QVPlayerView* _view = nullptr;
};

}  // namespace

int runPlay(const std::vector<std::string>& args) {
    if (args.size() != 1) throw CommandError("play needs one EDIT.json or PROJECT", kExitBadInput);
    if (!hasEnvironment("QT_QPA_PLATFORM") && !hasEnvironment("DISPLAY") && !hasEnvironment("WAYLAND_DISPLAY")) {
        throw CommandError("play needs a display, and neither DISPLAY nor WAYLAND_DISPLAY is set", kExitFailure);
    }
    auto project = openProjectArgument(args[0]);

    static int argc = 1;
    static char name[] = "quormedia";
    static char* argv[] = {name, nullptr};
    QApplication application(argc, argv);
    int exitCode = 0;
    {
        QtMainQueue mainQueue;
        PlayerWindow window(QVPlayerViewCtrl::sharePlayerCtrl(), project);
        window.show();
        exitCode = application.exec();
    }
    return exitCode;
}

}  // namespace qm::cli
