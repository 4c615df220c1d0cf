// ToolLocator: sibling programs first, so an unpacked or uninstalled build uses its own tools.
#include "tool_locator.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

ToolLocator::ToolLocator(const QString& directory) : directory_(directory) {}

QString ToolLocator::program(const QString& name) const {
    if (!directory_.isEmpty()) {
        const QFileInfo sibling(QDir(directory_).filePath(name));
        if (sibling.isFile() && sibling.isExecutable()) return sibling.absoluteFilePath();
    }
    const QString found = QStandardPaths::findExecutable(name);
    return found.isEmpty() ? name : found;
}
