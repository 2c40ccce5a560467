#pragma once

#include "CaptureExport.h"
#include "LiveTraceModel.h"
#include "TraceRecord.h"

#include <QString>
#include <QStringList>

#include <cstdint>
#include <optional>
#include <string>

// What zel-record is asked to do: where to write, when to stop, what to keep.
struct RecordOptions
{
    QString output;
    capture::Format format = capture::Format::Csv;
    // A capture file rather than one of the export formats.
    bool zelcap = false;
    double duration = 0;
    std::uint64_t count = 0;
    QString viewFilter;
    std::optional<unsigned> pid;
    std::optional<QString> message;
    bool quiet = false;
    int key = ZelTracer::s_VisaSharedMemoryKey;
    std::string semaphore = ZelTracer::s_SharedMemoryMutexName;
    QString ring = LiveTraceModel::defaultSharedRingName();
};

// A command line read: the options to record with, or what to print and the exit code. --help and
// --version print on the standard output and end with 0; a usage error prints its text (after
// "zel-record: ") on the standard error and ends with 1. It never ends the program itself, so that
// any argument list can be tried on it.
struct RecordCommandLine
{
    std::optional<RecordOptions> options;
    int exitCode = 0;
    QString output;
    QString error;

    static RecordCommandLine parse(QStringList const& arguments);
};
