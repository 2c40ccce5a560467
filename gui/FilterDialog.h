#pragma once

#include <QDialog>

#include <memory>

class TraceApplication;
class Ui_filterDialog;

namespace gui {

// Sets the record filter that the traced processes apply before they write a record: a process id
// and a message text, read from the shared header on opening and written back on OK.
class FilterDialog : public QDialog
{
    Q_OBJECT

public:
    FilterDialog(QWidget* parent, TraceApplication& app);
    ~FilterDialog() override;

    void accept() override;

private:
    void setupUi();
    void UpdateWindowItems();
    void setComboBoxPidElements();

    // Only widget pointers; owned so that leak checkers stay quiet.
    std::unique_ptr<Ui_filterDialog> ui;
    TraceApplication& app;
};

} // namespace gui
