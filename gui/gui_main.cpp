// kinefix-gui: the graphical front end that drives kinefix and its companion programs.
#include <QApplication>
#include <QIcon>

#include "main_window.h"
#include "screenshot_driver.h"
#include "tool_locator.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("kinefix"));
    QApplication::setApplicationName(QStringLiteral("kinefix-gui"));
    QApplication::setApplicationDisplayName(QStringLiteral("Kinefix"));
    QApplication::setDesktopFileName(QStringLiteral("kinefix-gui"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("kinefix-gui"),
                                                 QIcon(QStringLiteral(":/kinefix-gui.png"))));

    MainWindow window(ToolLocator(QApplication::applicationDirPath()));
    QStringList files = QApplication::arguments().mid(1);
    // Not documented for users: scripts/screenshots.sh sets it.
    const QString shots = qEnvironmentVariable("KINEFIX_GUI_SCREENSHOTS");
    if (!shots.isEmpty()) {
        auto* driver = new ScreenshotDriver(&window, shots, files);
        driver->start();
        files.clear();
    }
    window.addFiles(files);
    window.show();
    return QApplication::exec();
}
