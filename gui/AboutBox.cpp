#include "AboutBox.h"

#include "ZelVersion.h"

#include <QGridLayout>
#include <QIcon>
#include <QMessageBox>
#include <QWidget>

namespace gui {

QString aboutText()
{
    return QMessageBox::tr("<h3>ZelVisa Trace Tool %1</h3>"
                           "<p>Shows live every VISA call that the programs on this computer make to their "
                           "instruments, records them to a log file, and exports and opens captures.</p>"
                           "<p>Without a window: <tt>zel-record</tt>. Manual pages: "
                           "<tt>ZelVisaTraceTool(1)</tt>, <tt>zel-record(1)</tt>.</p>"
                           "<p>Built with Qt %2, running on Qt %3.</p>"
                           "<p>&copy; Zelbrook</p>")
        .arg(QLatin1String(ZelTracer::s_VersionString), QLatin1String(QT_VERSION_STR), QLatin1String(qVersion()));
}

void showAbout(QWidget* parent)
{
    QMessageBox box(parent);
    box.setWindowTitle(QMessageBox::tr("About ZelVisa Trace Tool"));
    box.setTextFormat(Qt::RichText);
    box.setText(aboutText());
    // Drawn from the vector source at the screen's scale.
    const QIcon icon(QStringLiteral(":/icons/app/zelvisa-trace-tool.svg"));
    box.setIconPixmap(icon.pixmap(QSize(64, 64)));
    // A message box wraps its text narrowly; the About text reads better in wider lines.
    if (auto* grid = qobject_cast<QGridLayout*>(box.layout()))
        grid->addItem(new QSpacerItem(box.fontMetrics().averageCharWidth() * 60, 0), grid->rowCount(), 0, 1,
                      grid->columnCount());
    box.exec();
}

} // namespace gui
