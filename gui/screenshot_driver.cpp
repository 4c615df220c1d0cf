// ScreenshotDriver: saves what the window shows, rendered by the platform the window runs on.
#include "screenshot_driver.h"

#include <QApplication>
#include <QDir>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>

#include "main_window.h"

ScreenshotDriver::ScreenshotDriver(MainWindow* window, const QString& folder,
                                   const QStringList& files)
    : QObject(window), window_(window), folder_(folder), files_(files) {}

void ScreenshotDriver::start() {
    QDir().mkpath(folder_);
    auto* bar = window_->findChild<QProgressBar*>(QStringLiteral("progress"));
    connect(bar, &QProgressBar::valueChanged, this, [this, bar](int value) {
        if (half_shot_ || value < (bar->maximum() + 1) / 2 || !window_->repairing()) return;
        half_shot_ = true;
        shoot(QStringLiteral("repairing"));
    });
    connect(window_, &MainWindow::allFinished, this, [this] {
        const bool done =
            window_->findChild<QPushButton*>(QStringLiteral("openResult"))->isEnabled();
        shoot(done ? QStringLiteral("done") : QStringLiteral("failed"));
        QTimer::singleShot(0, qApp, &QApplication::quit);
    });
    // Once the window is on screen and its rescue question answered.
    QTimer::singleShot(1500, this, [this] {
        shoot(QStringLiteral("empty"));
        window_->addFiles(files_);
        window_->findChild<QPushButton*>(QStringLiteral("repair"))->click();
    });
}

void ScreenshotDriver::shoot(const QString& name) {
    window_->repaint();
    window_->grab().save(QDir(folder_).filePath(name + QStringLiteral(".png")));
}
