#include "FilterDialog.h"

#include "TraceApplication.h"
#include "ui_FilterDialog.h"

#include <QLineEdit>

namespace gui {

FilterDialog::FilterDialog(QWidget* parent, TraceApplication& app)
    : QDialog(parent)
    , ui(std::make_unique<Ui_filterDialog>())
    , app(app)
{
    ui->setupUi(this);
    setupUi();
}

FilterDialog::~FilterDialog() = default;

void FilterDialog::setupUi()
{
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    // Up to six digits, each optional: ids above 999999 cannot be typed.
    ui->comboBoxPid->lineEdit()->setInputMask(QStringLiteral("999999"));
    UpdateWindowItems();
    setComboBoxPidElements();
}

void FilterDialog::UpdateWindowItems()
{
    std::string message;
    unsigned int pid = 0;
    app.getChannelControl().getFilter(message, pid);
    ui->comboBoxPid->lineEdit()->setText(pid != 0 ? QString::number(pid) : QString());
    // Latin-1 here and UTF-8 on the way back, as it has always been: plain ASCII survives a reopen.
    ui->lineEditRegexFilter->setText(QString::fromLatin1(message.c_str()));
    ui->groupBoxPid->setChecked(pid != 0);
    ui->groupBoxRegex->setChecked(!message.empty());
}

void FilterDialog::setComboBoxPidElements()
{
    // Filling an empty list makes its first id current, which would replace the filter in force
    // that the edit field shows; the field keeps what it had.
    const QString shown = ui->comboBoxPid->lineEdit()->text();
    for (std::uint32_t pid : app.getModel().getPids())
        ui->comboBoxPid->addItem(QString::number(pid));
    ui->comboBoxPid->lineEdit()->setText(shown);
}

// A checked box with an empty or unparsable field means no filter, like an unchecked one.
void FilterDialog::accept()
{
    ZelTracer::TraceChannelControl& control = app.getChannelControl();
    control.setPidFilter(ui->groupBoxPid->isChecked() ? ui->comboBoxPid->currentText().toUInt(nullptr, 10) : 0);
    control.setMessageFilter(ui->groupBoxRegex->isChecked() ? ui->lineEditRegexFilter->text().toUtf8().toStdString()
                                                            : std::string());
    QDialog::accept();
}

} // namespace gui
