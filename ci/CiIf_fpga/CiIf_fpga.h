// What the files of the source unit CiIf_fpga share.
#ifndef CIIF_FPGA_H
#define CIIF_FPGA_H

// The unit's path in messages.
constexpr char fpgaUnit[] = "../../CiIf_fpga";

#endif
