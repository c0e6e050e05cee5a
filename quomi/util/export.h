#pragma once

/// Marks what a host, or hosts/simulated, may link to when the library is a shared one; everything else stays hidden
/// inside of it.
#define QUOMI_EXPORT [[gnu::visibility("default")]]
