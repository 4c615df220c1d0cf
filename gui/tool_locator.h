#pragma once
// ToolLocator: where the console programs that kinefix-gui drives are found.

#include <QString>

class ToolLocator {
  public:
    // Programs are looked for in `directory` first (kinefix-gui's own), then on PATH.
    explicit ToolLocator(const QString& directory = QString());
    // The program's path; its bare name when found nowhere, so that starting it fails with
    // a message that names it.
    QString program(const QString& name) const;

  private:
    QString directory_;
};
