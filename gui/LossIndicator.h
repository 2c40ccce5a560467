#pragma once

#include <QLabel>

#include <cstdint>

class LossCounter;

namespace gui {

// A status-bar field with the number of records that traced processes wrote and that never arrived,
// and per process in its tooltip. Empty while nothing was lost.
class LossIndicator : public QLabel
{
    Q_OBJECT

public:
    explicit LossIndicator(QWidget* parent = nullptr);

    void showLoss(const LossCounter& counter);

private:
    std::uint64_t shownTotal = 0;
};

} // namespace gui
