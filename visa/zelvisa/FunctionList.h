#pragma once

#include "visa.h"

#include <cstddef>
#include <cstring>

// Every function of the VISA C API, in the order strcmp gives: the dlsym hook looks names up in it.
// X(name) is expanded once per function.
#define ZELVISA_FUNCTIONS(X)                                                                                           \
    X(viAssertIntrSignal)                                                                                              \
    X(viAssertTrigger)                                                                                                 \
    X(viAssertUtilSignal)                                                                                              \
    X(viBufRead)                                                                                                       \
    X(viBufWrite)                                                                                                      \
    X(viClear)                                                                                                         \
    X(viClose)                                                                                                         \
    X(viDisableEvent)                                                                                                  \
    X(viDiscardEvents)                                                                                                 \
    X(viEnableEvent)                                                                                                   \
    X(viFindNext)                                                                                                      \
    X(viFindRsrc)                                                                                                      \
    X(viFlush)                                                                                                         \
    X(viGetAttribute)                                                                                                  \
    X(viGpibCommand)                                                                                                   \
    X(viGpibControlATN)                                                                                                \
    X(viGpibControlREN)                                                                                                \
    X(viGpibPassControl)                                                                                               \
    X(viGpibSendIFC)                                                                                                   \
    X(viIn16)                                                                                                          \
    X(viIn16Ex)                                                                                                        \
    X(viIn32)                                                                                                          \
    X(viIn32Ex)                                                                                                        \
    X(viIn64)                                                                                                          \
    X(viIn64Ex)                                                                                                        \
    X(viIn8)                                                                                                           \
    X(viIn8Ex)                                                                                                         \
    X(viInstallHandler)                                                                                                \
    X(viLock)                                                                                                          \
    X(viMapAddress)                                                                                                    \
    X(viMapAddressEx)                                                                                                  \
    X(viMapTrigger)                                                                                                    \
    X(viMemAlloc)                                                                                                      \
    X(viMemAllocEx)                                                                                                    \
    X(viMemFree)                                                                                                       \
    X(viMemFreeEx)                                                                                                     \
    X(viMove)                                                                                                          \
    X(viMoveAsync)                                                                                                     \
    X(viMoveAsyncEx)                                                                                                   \
    X(viMoveEx)                                                                                                        \
    X(viMoveIn16)                                                                                                      \
    X(viMoveIn16Ex)                                                                                                    \
    X(viMoveIn32)                                                                                                      \
    X(viMoveIn32Ex)                                                                                                    \
    X(viMoveIn64)                                                                                                      \
    X(viMoveIn64Ex)                                                                                                    \
    X(viMoveIn8)                                                                                                       \
    X(viMoveIn8Ex)                                                                                                     \
    X(viMoveOut16)                                                                                                     \
    X(viMoveOut16Ex)                                                                                                   \
    X(viMoveOut32)                                                                                                     \
    X(viMoveOut32Ex)                                                                                                   \
    X(viMoveOut64)                                                                                                     \
    X(viMoveOut64Ex)                                                                                                   \
    X(viMoveOut8)                                                                                                      \
    X(viMoveOut8Ex)                                                                                                    \
    X(viOpen)                                                                                                          \
    X(viOpenDefaultRM)                                                                                                 \
    X(viOut16)                                                                                                         \
    X(viOut16Ex)                                                                                                       \
    X(viOut32)                                                                                                         \
    X(viOut32Ex)                                                                                                       \
    X(viOut64)                                                                                                         \
    X(viOut64Ex)                                                                                                       \
    X(viOut8)                                                                                                          \
    X(viOut8Ex)                                                                                                        \
    X(viParseRsrc)                                                                                                     \
    X(viParseRsrcEx)                                                                                                   \
    X(viPeek16)                                                                                                        \
    X(viPeek32)                                                                                                        \
    X(viPeek64)                                                                                                        \
    X(viPeek8)                                                                                                         \
    X(viPoke16)                                                                                                        \
    X(viPoke32)                                                                                                        \
    X(viPoke64)                                                                                                        \
    X(viPoke8)                                                                                                         \
    X(viPrintf)                                                                                                        \
    X(viPxiReserveTriggers)                                                                                            \
    X(viQueryf)                                                                                                        \
    X(viRead)                                                                                                          \
    X(viReadAsync)                                                                                                     \
    X(viReadSTB)                                                                                                       \
    X(viReadToFile)                                                                                                    \
    X(viSPrintf)                                                                                                       \
    X(viSScanf)                                                                                                        \
    X(viScanf)                                                                                                         \
    X(viSetAttribute)                                                                                                  \
    X(viSetBuf)                                                                                                        \
    X(viStatusDesc)                                                                                                    \
    X(viTerminate)                                                                                                     \
    X(viUninstallHandler)                                                                                              \
    X(viUnlock)                                                                                                        \
    X(viUnmapAddress)                                                                                                  \
    X(viUnmapTrigger)                                                                                                  \
    X(viUsbControlIn)                                                                                                  \
    X(viUsbControlOut)                                                                                                 \
    X(viVPrintf)                                                                                                       \
    X(viVQueryf)                                                                                                       \
    X(viVSPrintf)                                                                                                      \
    X(viVSScanf)                                                                                                       \
    X(viVScanf)                                                                                                        \
    X(viVxiCommandQuery)                                                                                               \
    X(viWaitOnEvent)                                                                                                   \
    X(viWrite)                                                                                                         \
    X(viWriteAsync)                                                                                                    \
    X(viWriteFromFile)

namespace zelvisa {

enum class Fn : std::size_t
{
#define ZELVISA_ENUM(name) name,
    ZELVISA_FUNCTIONS(ZELVISA_ENUM)
#undef ZELVISA_ENUM
};

constexpr const char* s_FunctionNames[] = {
#define ZELVISA_NAME(name) #name,
    ZELVISA_FUNCTIONS(ZELVISA_NAME)
#undef ZELVISA_NAME
};

constexpr std::size_t s_FunctionCount = sizeof s_FunctionNames / sizeof s_FunctionNames[0];

inline const char* nameOf(Fn f)
{
    return s_FunctionNames[static_cast<std::size_t>(f)];
}

// The type of each function as visa.h declares it, for calling the real library's.
template<Fn f> struct Signature;
#define ZELVISA_SIGNATURE(name)                                                                                        \
    template<> struct Signature<Fn::name>                                                                              \
    {                                                                                                                  \
        using Type = decltype(&::name);                                                                                \
    };
ZELVISA_FUNCTIONS(ZELVISA_SIGNATURE)
#undef ZELVISA_SIGNATURE

constexpr int compareNames(const char* a, const char* b)
{
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return static_cast<unsigned char>(*a) - static_cast<unsigned char>(*b);
}

constexpr bool namesSorted()
{
    for (std::size_t i = 1; i < s_FunctionCount; ++i) {
        if (compareNames(s_FunctionNames[i - 1], s_FunctionNames[i]) >= 0)
            return false;
    }
    return true;
}
static_assert(namesSorted(), "the function list must stay sorted for the lookup by name");
static_assert(s_FunctionCount == 106, "the VISA C API has 106 functions");

// The function of this name, or -1.
inline int indexOf(const char* name)
{
    std::size_t low = 0;
    std::size_t high = s_FunctionCount;
    while (low < high) {
        const std::size_t middle = low + (high - low) / 2;
        const int order = std::strcmp(s_FunctionNames[middle], name);
        if (order == 0)
            return static_cast<int>(middle);
        if (order < 0)
            low = middle + 1;
        else
            high = middle;
    }
    return -1;
}

} // namespace zelvisa
