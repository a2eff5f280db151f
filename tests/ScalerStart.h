#pragma once

#include "tvhw/VideoScalerClientTvhwImpl.h"

/// Makes the next scaler of this process the first one again. The flag is private: what names it is
/// an explicit instantiation, which may name anything.
void forgetScalerInitialisation();

template <bool* Flag>
struct ScalerStart {
    friend void forgetScalerInitialisation() { *Flag = false; }
};
template struct ScalerStart<&kvo::media::hardware::VideoScalerClientTvhwImpl::sInit>;
