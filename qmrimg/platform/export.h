// Marks what the shared library shows to its users. Everything else stays hidden.
#pragma once

#define QMR_API __attribute__((visibility("default")))
