#pragma once

#include "ModelFilters.h"

#include <initializer_list>

// One rule: a number for the numeric types, a text for the others.
inline SingleFilter rule(std::int32_t type, std::uint32_t value, const char* text = "", QColor color = Qt::cyan)
{
    SingleFilter f;
    f.type = type;
    f.value = value;
    f.text = QString::fromUtf8(text);
    f.color = color;
    return f;
}

// A rule set in the given order, made the way users make one: rule by rule.
inline ModelFilters rules(std::initializer_list<SingleFilter> list)
{
    ModelFilters set;
    for (const SingleFilter& f : list)
        set.add(f);
    return set;
}
