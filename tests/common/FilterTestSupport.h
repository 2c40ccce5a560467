#pragma once

#include "ModelFilters.h"

#include <initializer_list>

// A rule set in the given order, made the way users make one: rule by rule.
inline ModelFilters rules(std::initializer_list<SingleFilter> list)
{
    ModelFilters set;
    for (const SingleFilter& f : list)
        set.add(f);
    return set;
}
