#pragma once
// RepairEngine: copies the packets an index file lists out of a damaged recording into a new
// container, printing progress for the front end.

#include <cstdint>
#include <cstdio>

#include "restore/moov_parser.h"

struct AVFormatContext;
struct AVPacket;

class RepairEngine {
  public:
    RepairEngine();
    ~RepairEngine();
    RepairEngine(const RepairEngine&) = delete;
    RepairEngine& operator=(const RepairEngine&) = delete;

    // Every outcome is reported through the log, standard error or standard output.
    void Run(const char* broken_file, const char* moov_file, const char* output_file);
    // Walks the packet lines; the damaged file's end turns the remaining lines into ignored ones.
    bool CopyPackets(AVFormatContext* output, FILE* broken, MoovParser* parser);
    // Writes the packets of one packet line; a bad entry drops the rest of its line.
    void WriteLine(AVFormatContext* output, FILE* broken, MoovParser* parser, const char* line);

  private:
    bool ReadPacketData(FILE* broken, int64_t position, int size);

    int64_t audio_pts_ = 0;
    int64_t audio_dts_ = 0;
    int64_t video_pts_ = 0;
    int64_t video_dts_ = 0;
    uint8_t* buffer_ = nullptr;  // grown only, to the largest packet seen
    int capacity_ = 0;

    // Where the damaged file's next byte is read from and how long it is (-1: unknown), so a
    // damaged size can never ask for more memory than the file could fill.
    int64_t read_position_ = 0;
    int64_t broken_size_ = -1;
    AVPacket* packet_ = nullptr;
};
