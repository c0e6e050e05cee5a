#pragma once

/// Everything that a host app includes: the facade and what it is made with, told and asked. The parts of a platform
/// that any POSIX system offers have headers of their own, in `hosts/posix/`.
///
/// Threads: one thread, the host's, calls the SDK, and on it the SDK calls back; `RunLoop` says what that means. Where
/// a declaration speaks of "any thread", it may be called from others. Errors are values (`Error`), nothing throws.
/// Units stand beside each number; spans of time are `Duration`, microseconds.

#include "quomi/api/curl_transport.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/model/user.h"
#include "quomi/model/version.h"
#include "quomi/platform/application.h"
#include "quomi/platform/bluetooth.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device.h"
#include "quomi/platform/files.h"
#include "quomi/platform/localization.h"
#include "quomi/platform/location.h"
#include "quomi/platform/notification_center.h"
#include "quomi/platform/platform.h"
#include "quomi/platform/reachability.h"
#include "quomi/platform/run_loop.h"
#include "quomi/platform/screens.h"
#include "quomi/platform/user_defaults.h"
#include "quomi/rules/rule_observer.h"
#include "quomi/sdk/authorization_logger.h"
#include "quomi/sdk/authorization_manager.h"
#include "quomi/sdk/sdk.h"
#include "quomi/sdk/sdk_delegate.h"
#include "quomi/util/error.h"
#include "quomi/util/time.h"
#include "quomi/util/uuid.h"
