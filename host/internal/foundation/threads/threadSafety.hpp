// SPDX-License-Identifier: Apache-2.0
#pragma once

// Tell clang which lock guards what; it then refuses code that does without (-Wthread-safety, in the preset clang).
// Other compilers see nothing of it.

#if defined(__clang__)
#define CLOUDPROVIDER_LOCKS(attribute) __attribute__((attribute))
#else
#define CLOUDPROVIDER_LOCKS(attribute)
#endif

/// A class that is a lock, and one that holds a lock from its construction to its end.
#define CLOUDPROVIDER_CAPABILITY(kind) CLOUDPROVIDER_LOCKS(capability(kind))
#define CLOUDPROVIDER_SCOPED_CAPABILITY CLOUDPROVIDER_LOCKS(scoped_lockable)

/// A member that is only touched with that lock held; a shared lock is enough to read it.
#define CLOUDPROVIDER_GUARDED_BY(lock) CLOUDPROVIDER_LOCKS(guarded_by(lock))

/// An operation that is called with those locks held, or that takes them itself and is called without.
#define CLOUDPROVIDER_REQUIRES(...) CLOUDPROVIDER_LOCKS(requires_capability(__VA_ARGS__))
#define CLOUDPROVIDER_REQUIRES_SHARED(...) CLOUDPROVIDER_LOCKS(requires_shared_capability(__VA_ARGS__))
#define CLOUDPROVIDER_EXCLUDES(...) CLOUDPROVIDER_LOCKS(locks_excluded(__VA_ARGS__))

/// An operation that takes a lock, or gives one up; without an argument, its own object's.
#define CLOUDPROVIDER_ACQUIRE(...) CLOUDPROVIDER_LOCKS(acquire_capability(__VA_ARGS__))
#define CLOUDPROVIDER_ACQUIRE_SHARED(...) CLOUDPROVIDER_LOCKS(acquire_shared_capability(__VA_ARGS__))
#define CLOUDPROVIDER_TRY_ACQUIRE_SHARED(...) CLOUDPROVIDER_LOCKS(try_acquire_shared_capability(__VA_ARGS__))
#define CLOUDPROVIDER_RELEASE(...) CLOUDPROVIDER_LOCKS(release_capability(__VA_ARGS__))
#define CLOUDPROVIDER_RELEASE_SHARED(...) CLOUDPROVIDER_LOCKS(release_shared_capability(__VA_ARGS__))

/// An operation that is right, but by reasons that clang does not see; a comment says which.
#define CLOUDPROVIDER_LOCKS_NOT_ANALYSED CLOUDPROVIDER_LOCKS(no_thread_safety_analysis)
