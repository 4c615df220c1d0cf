#pragma once
// RescueProbe: asks the installed kinefix-index whether it can rebuild an index from a healthy
// reference recording, without blocking the caller.

#include <QObject>

class QProcess;
class ToolLocator;

class RescueProbe : public QObject {
    Q_OBJECT
  public:
    explicit RescueProbe(QObject* parent = nullptr);
    void start(const ToolLocator& tools);

  signals:
    void answered(bool available);

  private:
    QProcess* process_ = nullptr;
};
