// The former name of qk/archive.h, kept for hosts written against it in this major version.
#pragma once

#include "qk/archive.h"
