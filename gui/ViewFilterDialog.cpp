#include "ViewFilterDialog.h"

#include "SettingsKeys.h"

#include "SettingsGuard.h"
#include "WindowPlacement.h"
#include "ui_ViewFilterDialog.h"

#include <QColorDialog>
#include <QFile>
#include <QFileDialog>
#include <QMessageBox>
#include <QSettings>
#include <QSignalBlocker>
#include <QStandardPaths>

namespace gui {

namespace {

bool isHighlight(std::int32_t type)
{
    return static_cast<std::uint32_t>(type) <= SingleFilter::HighlightCommand;
}

QString documentsFolder()
{
    return QStandardPaths::standardLocations(QStandardPaths::DocumentsLocation).value(0);
}

} // namespace

ViewFilterDialog::ViewFilterDialog(QWidget* parent, ModelFilters filters)
    : QDialog(parent)
    , ui(std::make_unique<Ui_ViewFilterDialog>())
    , viewFilters(std::move(filters))
    , currentRow(-1)
{
    ui->setupUi(this);
    setupUi();
    setupConnections();
    refreshList();
}

ViewFilterDialog::~ViewFilterDialog()
{
    saveWindowSettings();
}

void ViewFilterDialog::setupUi()
{
    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    restoreWindowSettings();
    refreshList();
}

void ViewFilterDialog::setupConnections()
{
    connect(ui->newButton, &QPushButton::clicked, this, &ViewFilterDialog::newbuttonclicked);
    connect(ui->deleteButton, &QPushButton::clicked, this, &ViewFilterDialog::deletebuttonclicked);
    connect(ui->deleteAllButton, &QPushButton::clicked, this, &ViewFilterDialog::deleteallbuttonclicked);
    connect(ui->colorButton, &QPushButton::clicked, this, &ViewFilterDialog::colorbuttonclicked);
    connect(ui->filterlist, &QListWidget::itemSelectionChanged, this, &ViewFilterDialog::itemSelectionChanged);
    connect(ui->saveButton, &QPushButton::clicked, this, &ViewFilterDialog::saveButtonClicked);
    connect(ui->openButton, &QPushButton::clicked, this, &ViewFilterDialog::openButtonClicked);
}

void ViewFilterDialog::accept()
{
    updateEntry();
    QDialog::accept();
}

// Rule texts are shown as Latin-1, as they always have been: an address or command beyond ASCII
// shows garbled here but is stored unchanged.
void ViewFilterDialog::refreshList()
{
    QListWidget* list = ui->filterlist;
    auto show = [list](QListWidgetItem* item, SingleFilter const& filter) {
        item->setText(QString::fromLatin1(filter.toString().c_str()));
        item->setBackground(isHighlight(filter.type) ? QBrush(filter.color) : list->palette().brush(QPalette::Base));
    };
    const QList<SingleFilter>& rules = viewFilters.filters;
    if (list->count() == rules.size()) {
        for (int i = 0; i < rules.size(); ++i)
            show(list->item(i), rules[i]);
    } else {
        // Refilling drops the selection; that is no user's choice, so no rule is loaded or committed.
        QSignalBlocker blocker(list);
        list->clear();
        for (SingleFilter const& rule : rules) {
            auto* item = new QListWidgetItem(list);
            show(item, rule);
        }
    }

    const bool hasRows = list->count() > 0;
    if (hasRows && !list->selectedItems().isEmpty()) {
        ui->deleteAllButton->setEnabled(hasRows);
        return;
    }
    ui->deleteButton->setEnabled(false);
    ui->colorButton->setEnabled(false);
    ui->groupBoxFilter->setEnabled(false);
    ui->groupBoxType->setEnabled(false);
    ui->deleteAllButton->setEnabled(hasRows);
}

void ViewFilterDialog::updateEntry()
{
    if (currentRow >= 0 && currentRow < viewFilters.filters.size()) {
        SingleFilter& rule = viewFilters.filters[currentRow];
        QRadioButton* const fields[] = {ui->radioButtonTid, ui->radioButtonPid, ui->radioButtonSession,
                                        ui->radioButtonAddress, ui->radioButtonCommand};
        QRadioButton* const actions[] = {ui->radioButtonHighlight, ui->radioButtonInclude, ui->radioButtonExclude};
        for (int action = 0; action < SingleFilter::ActionCount; ++action) {
            if (!actions[action]->isChecked())
                continue;
            for (int field = 0; field < SingleFilter::FieldCount; ++field) {
                if (fields[field]->isChecked()) {
                    rule.type = action * SingleFilter::FieldCount + field;
                    break;
                }
            }
            break;
        }
        rule.setValue(ui->lineEditId->text());
        viewFilters.showOnly = viewFilters.showOnlyActive();
    }
    refreshList();
}

void ViewFilterDialog::itemSelectionChanged()
{
    const QList<QListWidgetItem*> selected = ui->filterlist->selectedItems();
    const bool any = !selected.isEmpty();
    ui->deleteButton->setEnabled(any);
    ui->colorButton->setEnabled(any);
    ui->groupBoxFilter->setEnabled(any);
    ui->groupBoxType->setEnabled(any);
    if (any) {
        updateEntry();
        currentRow = ui->filterlist->row(selected.first());
        if (currentRow >= 0 && currentRow < viewFilters.filters.size()) {
            SingleFilter const& rule = viewFilters.filters[currentRow];
            ui->lineEditId->setInputMask(QString());
            ui->lineEditId->setText(rule.getValue());
            QRadioButton* const fields[] = {ui->radioButtonTid, ui->radioButtonPid, ui->radioButtonSession,
                                            ui->radioButtonAddress, ui->radioButtonCommand};
            QRadioButton* const actions[] = {ui->radioButtonHighlight, ui->radioButtonInclude, ui->radioButtonExclude};
            if (static_cast<std::uint32_t>(rule.type) < SingleFilter::TypeCount) {
                fields[rule.type % SingleFilter::FieldCount]->setChecked(true);
                // An exclude-address rule leaves the action buttons as the previous rule set them; a
                // later commit can turn it into another action. Users know the dialog this way.
                if (rule.type != SingleFilter::ExcludeAddress)
                    actions[rule.type / SingleFilter::FieldCount]->setChecked(true);
            }
        }
    }
    refreshList();
}

void ViewFilterDialog::newbuttonclicked()
{
    updateEntry();
    SingleFilter rule;
    rule.value = 0;
    rule.text = QString();
    rule.type = SingleFilter::HighlightThread;
    rule.color = QColor(Qt::cyan);
    viewFilters.add(rule);
    refreshList();
    ui->filterlist->setCurrentRow(ui->filterlist->count() - 1);
}

void ViewFilterDialog::deletebuttonclicked()
{
    const int row = ui->filterlist->currentRow();
    if (row >= 0 && row < viewFilters.filters.size()) {
        viewFilters.erase(static_cast<unsigned long>(row));
        currentRow = -1;
    }
    refreshList();
    const int count = ui->filterlist->count();
    if (row >= 0 && row < count)
        ui->filterlist->setCurrentRow(row);
    else if (count > 0)
        ui->filterlist->setCurrentRow(count - 1);
}

void ViewFilterDialog::deleteallbuttonclicked()
{
    viewFilters.clear();
    refreshList();
}

void ViewFilterDialog::colorbuttonclicked()
{
    const QList<QListWidgetItem*> selected = ui->filterlist->selectedItems();
    if (selected.isEmpty())
        return;
    const int row = ui->filterlist->row(selected.first());
    if (row < 0 || row >= viewFilters.filters.size())
        return;
    const QColor color = QColorDialog::getColor(viewFilters.filters[row].color, this);
    if (color.isValid()) {
        viewFilters.filters[row].color = color;
        refreshList();
    }
}

// Pending edits are not committed before saving, unlike loading.
void ViewFilterDialog::saveButtonClicked(bool)
{
    const QString fileName = QFileDialog::getSaveFileName(this, tr("Save View Filter file"), documentsFolder(),
                                                          QStringLiteral("*.viewfilter"));
    if (!fileName.isEmpty())
        saveFile(fileName);
}

void ViewFilterDialog::openButtonClicked(bool)
{
    updateEntry();
    loadFile(QFileDialog::getOpenFileName(this, tr("Open View Filter file"), documentsFolder(),
                                          QStringLiteral("*.viewfilter")));
}

// A file that cannot be created is not reported, as with every file of this dialog.
void ViewFilterDialog::saveFile(QString const& fileName) const
{
    QFile file(fileName);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        viewFilters.saveViewFilterFile(file);
}

// A foreign file or another format version is ignored without a word. A file with more rules
// than anyone edits by hand is refused with a message: it would slow every display rebuild.
void ViewFilterDialog::loadFile(QString const& fileName)
{
    if (fileName.isEmpty() || !QFile::exists(fileName))
        return;
    QFile file(fileName);
    if (file.open(QIODevice::ReadOnly)) {
        switch (viewFilters.loadViewFilterFileChecked(file)) {
        case ModelFilters::LoadResult::Loaded:
            // A loaded set replaces every rule, so no rule is shown in the editor any more:
            // committing the editor later must not overwrite a loaded rule.
            currentRow = -1;
            break;
        case ModelFilters::LoadResult::TooManyRules:
            QMessageBox::warning(
                this, tr("Open View Filter file"),
                tr("The file holds more than %1 rules and was not loaded.").arg(ModelFilters::s_MaxFileRules));
            break;
        case ModelFilters::LoadResult::Foreign:
            break;
        }
    }
    refreshList();
}

void ViewFilterDialog::restoreWindowSettings()
{
    dropForeignVariants(QSettings().fileName());
    QSettings settings;
    settings.beginGroup(QLatin1String(SettingsKeys::s_ViewFilterDialogGroup));
    const bool fullscreen = restorePlacement(*this, settings);
    settings.endGroup();
    if (fullscreen)
        showMaximized();
}

void ViewFilterDialog::saveWindowSettings() const
{
    QSettings settings;
    settings.beginGroup(QLatin1String(SettingsKeys::s_ViewFilterDialogGroup));
    savePlacement(*this, settings);
    settings.endGroup();
}

} // namespace gui
