/* viLock and viUnlock between the sessions of this process (a lock does not reach other processes).
 * The lock of a resource is kept by its canonical name, under the table's mutex. */
#include "sim.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef struct SimResourceLock SimResourceLock;
struct SimResourceLock
{
    char name[SIM_NAME_SIZE];
    ViSession exclusiveOwner;
    unsigned sharedHolders; /* sessions holding the shared lock */
    char key[SIM_NAME_SIZE];
    SimResourceLock* next;
};

static SimResourceLock* g_locks;
static unsigned g_nextKey = 1;

static SimResourceLock* lock_of(const SimObject* s, int create)
{
    for (SimResourceLock* r = g_locks; r; r = r->next) {
        if (strcmp(r->name, s->name) == 0)
            return r;
    }
    if (!create)
        return NULL;
    SimResourceLock* r = calloc(1, sizeof *r);
    if (r) {
        snprintf(r->name, sizeof r->name, "%s", s->name);
        r->next = g_locks;
        g_locks = r;
    }
    return r;
}

ViStatus sim_check_access(SimObject* s)
{
    const SimResourceLock* r = lock_of(s, 0);
    if (!r || r->exclusiveOwner == s->id)
        return VI_SUCCESS;
    if (r->exclusiveOwner || (r->sharedHolders && !s->sharedLocks))
        return VI_ERROR_RSRC_LOCKED;
    return VI_SUCCESS;
}

ViUInt32 sim_lock_state(const SimObject* s)
{
    const SimResourceLock* r = lock_of(s, 0);
    if (r && r->exclusiveOwner)
        return VI_EXCLUSIVE_LOCK;
    return r && r->sharedHolders ? VI_SHARED_LOCK : VI_NO_LOCK;
}

void sim_drop_locks(SimObject* s)
{
    SimResourceLock* r = lock_of(s, 0);
    if (!r)
        return;
    if (s->exclusiveLocks && r->exclusiveOwner == s->id)
        r->exclusiveOwner = 0;
    if (s->sharedLocks && r->sharedHolders)
        --r->sharedHolders;
    s->exclusiveLocks = s->sharedLocks = 0;
    sim_broadcast();
}

static int can_lock(const SimResourceLock* r, const SimObject* s, ViAccessMode type, ViConstKeyId requested)
{
    if (type == VI_EXCLUSIVE_LOCK)
        return r->exclusiveOwner == 0 && r->sharedHolders == (s->sharedLocks ? 1u : 0u);
    if (r->exclusiveOwner && r->exclusiveOwner != s->id)
        return 0;
    return r->sharedHolders == 0 || (requested && strcmp(requested, r->key) == 0);
}

SIM_API ViStatus viLock(ViSession vi, ViAccessMode lockType, ViUInt32 timeout, ViConstKeyId requestedKey,
                        ViChar accessKey[])
{
    if (lockType != VI_EXCLUSIVE_LOCK && lockType != VI_SHARED_LOCK)
        return VI_ERROR_INV_LOCK_TYPE;
    if (requestedKey && strnlen(requestedKey, SIM_NAME_SIZE) >= SIM_NAME_SIZE)
        return VI_ERROR_INV_ACCESS_KEY;
    ViStatus status;
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, &status);
    if (!s)
        return status;
    struct timespec deadline;
    sim_deadline(&deadline, timeout);
    pthread_mutex_lock(&g_simMutex);
    SimResourceLock* r = lock_of(s, 1);
    if (!r) {
        status = VI_ERROR_ALLOC;
    } else if (lockType == VI_EXCLUSIVE_LOCK && s->exclusiveLocks) {
        ++s->exclusiveLocks;
        status = VI_SUCCESS_NESTED_EXCLUSIVE;
    } else if (lockType == VI_SHARED_LOCK && s->sharedLocks) {
        ++s->sharedLocks;
        status = VI_SUCCESS_NESTED_SHARED;
    } else {
        while (!s->closed && !can_lock(r, s, lockType, requestedKey)) {
            if (sim_wait(&deadline, sim_forever(timeout)) == ETIMEDOUT)
                break;
        }
        if (s->closed) {
            status = VI_ERROR_INV_OBJECT;
        } else if (!can_lock(r, s, lockType, requestedKey)) {
            status = VI_ERROR_TMO;
        } else if (lockType == VI_EXCLUSIVE_LOCK) {
            r->exclusiveOwner = s->id;
            s->exclusiveLocks = 1;
        } else {
            if (r->sharedHolders == 0) {
                if (requestedKey && *requestedKey)
                    snprintf(r->key, sizeof r->key, "%s", requestedKey);
                else
                    snprintf(r->key, sizeof r->key, "ZelSim%u", g_nextKey++);
            }
            ++r->sharedHolders;
            s->sharedLocks = 1;
        }
    }
    if (r && lockType == VI_SHARED_LOCK && status >= VI_SUCCESS && accessKey)
        sim_write_text(accessKey, r->key);
    pthread_mutex_unlock(&g_simMutex);
    sim_release(s);
    return status;
}

SIM_API ViStatus viUnlock(ViSession vi)
{
    ViStatus status;
    SimObject* s = sim_acquire(vi, SIM_INSTRUMENT, &status);
    if (!s)
        return status;
    pthread_mutex_lock(&g_simMutex);
    SimResourceLock* r = lock_of(s, 0);
    if (r && s->exclusiveLocks) {
        if (--s->exclusiveLocks == 0)
            r->exclusiveOwner = 0;
    } else if (r && s->sharedLocks) {
        if (--s->sharedLocks == 0)
            --r->sharedHolders;
    } else {
        status = VI_ERROR_SESN_NLOCKED;
    }
    if (status == VI_SUCCESS) {
        if (s->exclusiveLocks)
            status = VI_SUCCESS_NESTED_EXCLUSIVE;
        else if (s->sharedLocks)
            status = VI_SUCCESS_NESTED_SHARED;
        sim_broadcast();
    }
    pthread_mutex_unlock(&g_simMutex);
    sim_release(s);
    return status;
}
