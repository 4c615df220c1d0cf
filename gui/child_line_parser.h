#pragma once
// ChildLineParser: turns the bytes a console program writes into whole lines and those lines
// into the events of Kinefix's standard-output contract.

#include <QByteArray>
#include <QList>
#include <QString>

// What `summary:packets=N,ignored=N,duration=S,bytes=N` reports about a written output.
struct RepairSummary {
    qint64 packets = 0;
    qint64 ignored = 0;
    double duration = 0.0;
    qint64 bytes = 0;
};

struct ChildEvent {
    enum class Kind {
        Progress,      // value in [0, 1]
        Error,         // `error:ret=N,msg=TEXT`: code, text
        WriteError,    // a `pts:...` line: one packet the muxer refused
        Summary,       // summary
        VersionError,  // `[ERROR] version=N, parse failed`: code holds N
        End,           // `End`
        Text,          // anything else (banner, stderr lines): text
    };
    Kind kind = Kind::Text;
    double value = 0.0;
    int code = 0;
    QString text;
    RepairSummary summary;
};

class ChildLineParser {
  public:
    // Events of every line completed by `bytes`; a partial line waits for the next call.
    QList<ChildEvent> feed(const QByteArray& bytes);
    // Events of a last line that had no line end (the child has exited).
    QList<ChildEvent> finish();

    static ChildEvent parseLine(const QString& line);

  private:
    QByteArray pending_;
};
