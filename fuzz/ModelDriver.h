#pragma once

#include "FuzzSupport.h"
#include "LiveTraceModel.h"
#include "TraceChannelControl.h"

#include <QSharedMemory>

#include <sys/shm.h>

#include <string>

// A live model on a private segment and a private shared ring, with raw access to both so that a
// target can write what a hostile producer or a broken copy of the tool would write.
class ModelDriver
{
public:
    // Small on purpose: every byte of both is written on each run.
    static constexpr unsigned long s_SegmentSize = ZelTracer::s_HeaderSize + 48 * ZelTracer::s_SlotSize + 100;
    static constexpr int s_RingSize = 24 + 40 * sizeof(ZelTracer::FullEntry);

    ModelDriver()
        : key(TestNames::segmentKey(1))
        , semaphore(TestNames::semaphoreName("fuzzseg"))
        , ringName(QString::fromStdString(TestNames::sharedRingName("fuzz")))
    {
        removeAll();
        control = std::make_unique<ZelTracer::TraceChannelControl>(key, s_SegmentSize, semaphore);
        segment = static_cast<char*>(shmat(shmget(key, 0, 0), nullptr, 0));
        ring = std::make_unique<QSharedMemory>(ringName);
        ring->create(s_RingSize);
        model = std::make_unique<LiveTraceModel>(nullptr, *control, ringName);
        model->setSharedRingSize(s_RingSize);
    }
    ~ModelDriver() { removeAll(); }

    static ModelDriver& instance()
    {
        FuzzSupport::application();
        static ModelDriver driver;
        return driver;
    }

    char* ringData() { return static_cast<char*>(ring->data()); }

    // The three stages, then every cell and header of every row in every role the view asks for.
    void runStagesAndReadAll()
    {
        model->updateSharedData();
        model->updateInternalData();
        model->updateDisplayData();
        model->getPids();
        static const int roles[] = {Qt::DisplayRole,    Qt::DecorationRole, Qt::EditRole, Qt::ToolTipRole,
                                    Qt::BackgroundRole, Qt::ForegroundRole, Qt::FontRole, Qt::TextAlignmentRole,
                                    Qt::SizeHintRole,   Qt::CheckStateRole, Qt::UserRole};
        const int rows = model->rowCount();
        for (int r = -1; r <= rows; ++r) {
            for (int role : roles) {
                model->headerData(r, Qt::Vertical, role);
                for (int c = -1; c <= LiveTraceModel::ColumnCount; ++c) {
                    model->data(model->index(r, c), role);
                    model->headerData(c, Qt::Horizontal, role);
                }
            }
        }
    }

    void removeAll()
    {
        model.reset();
        control.reset();
        if (segment)
            shmdt(segment);
        segment = nullptr;
        ring.reset();
        TestNames::removeSegment(key);
        TestNames::unlinkSemaphore(semaphore);
    }

    int key;
    std::string semaphore;
    QString ringName;
    std::unique_ptr<ZelTracer::TraceChannelControl> control;
    char* segment = nullptr;
    std::unique_ptr<QSharedMemory> ring;
    std::unique_ptr<LiveTraceModel> model;
};
