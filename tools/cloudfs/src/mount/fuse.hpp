// SPDX-License-Identifier: Apache-2.0
#pragma once

// libfuse asks every source for the version of its interface that the source was written for.
#define FUSE_USE_VERSION 312
#include <fuse3/fuse_lowlevel.h>
