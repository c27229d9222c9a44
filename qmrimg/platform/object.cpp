#include "qmrimg/platform/object.h"

CObject::~CObject() = default;
