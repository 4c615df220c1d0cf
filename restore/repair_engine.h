#pragma once
// RepairEngine: copies the packets an index file lists out of a damaged recording into a new
// container, printing progress for the front end.

#include <cstdint>
#include <cstdio>

#include <string>

#include "restore/moov_parser.h"
#include "restore/packet_entry.h"
#include "restore/timestamp_steps.h"

struct AVFormatContext;
struct AVPacket;
struct AVStream;

namespace restore {

class PendingOutput;

class RepairEngine {
  public:
    RepairEngine();
    ~RepairEngine();
    RepairEngine(const RepairEngine&) = delete;
    RepairEngine& operator=(const RepairEngine&) = delete;

    // Every outcome is reported through the log, standard error or standard output. The output
    // takes its name only once complete; an existing file of that name survives any failure.
    void Run(const char* broken_file, const char* moov_file, const char* output_file);
    // Walks the packet lines; the damaged file's end turns the remaining lines into ignored ones.
    bool CopyPackets(AVFormatContext* output, FILE* broken, MoovParser* parser);
    // Writes the packets of one packet line; a bad entry drops the rest of its line.
    void WriteLine(AVFormatContext* output, FILE* broken, MoovParser* parser, const char* line);

    // The signal that stopped the copy (SIGINT, SIGTERM, SIGHUP), 0 when none did.
    int interrupt_signal() const { return interrupt_signal_; }

  private:
    bool InputsUsable(const char* broken_file, const char* moov_file, const char* output_file);
    bool SetUpOutput(PendingOutput* output, const MoovParser& parser, int* ret);
    int Finish(PendingOutput* output);
    void ReportRefusal(const std::string& why);
    void Interrupt(int line_number);
    // One entry's timestamps, in its description's time base.
    struct Times {
        int64_t pts = 0;
        int64_t dts = 0;
        int64_t duration = 0;
    };
    bool WriteEntry(AVFormatContext* output, FILE* broken, MoovParser* parser,
                    const PacketEntry& entry, const char* next);
    Times Advance(const PacketEntry& entry, const MoovParser& parser, const AVStream& stream);
    AVPacket* FillPacket(const PacketEntry& entry, const MoovParser& parser, const AVStream& stream,
                         const Times& times);
    void CountWritten(const AVStream& stream, const AVPacket& pkt);
    void ReportWriteError(const AVStream* stream, const AVPacket* pkt, const MoovParser* parser,
                          int ret, const char* next);
    bool ReadPacketData(FILE* broken, int64_t position, int size);
    // Whether one more per-packet error may be logged; the rest are counted.
    bool LogBudget();
    void CloseLogBudget();

    restore::TimestampSteps steps_;
    uint8_t* buffer_ = nullptr;  // grown only, to the largest packet seen
    int capacity_ = 0;

    // Where the damaged file's next byte is read from and how long it is (-1: unknown), so a
    // damaged size can never ask for more memory than the file could fill.
    int64_t read_position_ = 0;
    int64_t broken_size_ = -1;
    AVPacket* packet_ = nullptr;

    PendingOutput* output_ = nullptr;  // the file being written, for the unknown-version exit
    int64_t packets_written_ = 0;
    int ignored_lines_ = 0;
    double end_seconds_ = 0.0;
    int interrupt_signal_ = 0;
    int interrupted_line_ = 0;
    int64_t budget_used_ = 0;
    int64_t budget_dropped_ = 0;
};

}  // namespace restore
