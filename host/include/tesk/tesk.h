// The whole host runtime.
#pragma once

#include "tesk/any.h"
#include "tesk/builder.h"
#include "tesk/callable.h"
#include "tesk/class.h"
#include "tesk/class_draft.h"
#include "tesk/containers.h"
#include "tesk/error.h"
#include "tesk/language.h"
#include "tesk/module.h"
#include "tesk/object.h"
#include "tesk/string.h"
#include "tesk/typed.h"
#include "tesk/values.h"
