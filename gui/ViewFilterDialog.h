#pragma once

#include "ModelFilters.h"

#include <QDialog>

#include <cstdint>
#include <memory>

class Ui_ViewFilterDialog;

namespace gui {

// Edits a copy of the whole view filter set; the caller takes viewFilters after an accepted exec().
class ViewFilterDialog : public QDialog
{
    Q_OBJECT

public:
    ViewFilterDialog(QWidget* parent, ModelFilters filters);
    ~ViewFilterDialog() override;

    void accept() override;

    // The file halves of the Save and Load buttons, after the file dialog has named the file.
    void saveFile(QString const& fileName) const;
    void loadFile(QString const& fileName);

private:
    // The form record only holds the widget pointers; the widgets are the dialog's children. Owning
    // it keeps leak checkers quiet and changes nothing the user sees.
    std::unique_ptr<Ui_ViewFilterDialog> ui;

public:
    ModelFilters viewFilters;

private:
    std::int32_t currentRow;

    void setupUi();
    void setupConnections();
    void refreshList();
    void updateEntry();
    void restoreWindowSettings();
    void saveWindowSettings() const;

private slots:
    void newbuttonclicked();
    void deletebuttonclicked();
    void deleteallbuttonclicked();
    void colorbuttonclicked();
    void itemSelectionChanged();
    void saveButtonClicked(bool);
    void openButtonClicked(bool);
};

} // namespace gui
