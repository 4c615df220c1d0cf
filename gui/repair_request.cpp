// RepairRequest: the proposals made for a damaged file and the checks before a run.
#include "repair_request.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace {

QString Tr(const char* text) {
    return QCoreApplication::translate("RepairRequest", text);
}

bool SameFile(const QString& a, const QString& b) {
    const QFileInfo fa(a);
    const QFileInfo fb(b);
    if (fa.exists() && fb.exists()) return fa.canonicalFilePath() == fb.canonicalFilePath();
    return fa.absoluteFilePath() == fb.absoluteFilePath();
}

}  // namespace

RepairRequest RepairRequest::forDamaged(const QString& damaged) {
    RepairRequest request;
    request.damaged = damaged;
    request.index = siblingIndex(damaged);
    request.output = proposedOutput(damaged);
    return request;
}

QString RepairRequest::siblingIndex(const QString& damaged) {
    if (damaged.isEmpty()) return QString();
    const QFileInfo info(damaged);
    const QString index = info.dir().filePath(info.completeBaseName() + QStringLiteral(".idx"));
    return QFileInfo(index).isFile() ? index : QString();
}

QString RepairRequest::proposedOutput(const QString& damaged) {
    if (damaged.isEmpty()) return QString();
    const QFileInfo info(damaged);
    const QString suffix = info.suffix().isEmpty() ? QStringLiteral("mp4") : info.suffix();
    return info.dir().filePath(info.completeBaseName() + QStringLiteral("-repaired.") + suffix);
}

QString RepairRequest::problem(bool rescue_available) const {
    if (damaged.isEmpty()) return Tr("Choose the damaged recording.");
    if (!QFileInfo(damaged).isFile()) return Tr("%1 is not a file.").arg(damaged);
    if (index.isEmpty() && (!rescue_available || reference.isEmpty()))
        return rescue_available
                   ? Tr("Choose the index file of %1, or a healthy recording from the same "
                        "camera.")
                         .arg(QFileInfo(damaged).fileName())
                   : Tr("Choose the index file of %1.").arg(QFileInfo(damaged).fileName());
    if (!index.isEmpty() && !QFileInfo(index).isFile()) return Tr("%1 is not a file.").arg(index);
    if (index.isEmpty() && !QFileInfo(reference).isFile())
        return Tr("%1 is not a file.").arg(reference);
    if (output.isEmpty()) return Tr("Choose where to write the repaired video.");
    for (const QString& input : {damaged, index, reference})
        if (!input.isEmpty() && SameFile(output, input))
            return Tr("The output would overwrite an input; choose another output name.");
    for (const QString& path : {damaged, index, reference, output})
        if (path.contains(QLatin1Char('"')))
            return Tr("Kinefix cannot take a path with a double quote (\"): %1").arg(path);
    return QString();
}
