// RescueProbe: `kinefix-index --help` names `--reference` when the rescue path is built in.
#include "rescue_probe.h"

#include <QProcess>

#include "tool_locator.h"

RescueProbe::RescueProbe(QObject* parent) : QObject(parent) {}

void RescueProbe::start(const ToolLocator& tools) {
    process_ = new QProcess(this);
    process_->setProcessChannelMode(QProcess::MergedChannels);
    connect(process_, &QProcess::finished, this, [this] {
        const QByteArray said = process_->readAll();
        process_->deleteLater();
        process_ = nullptr;
        emit answered(said.contains("--reference"));
    });
    connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart) return;
        process_->deleteLater();
        process_ = nullptr;
        emit answered(false);
    });
    process_->start(tools.program(QStringLiteral("kinefix-index")), {QStringLiteral("--help")});
}
