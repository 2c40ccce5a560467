#pragma once

// Why a record shows as a row or not.
enum class RowVisibility
{
    Shown,
    HiddenByFilters,
    // A success while only errors show. The rows around it were not next to each other before, so
    // they never collapse into one: six timeouts a few seconds apart stay six failures.
    HiddenAsSuccess
};
