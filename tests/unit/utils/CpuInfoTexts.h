#pragma once

#include <string>
#include <vector>

namespace TAV::test
{

/// What /proc/cpuinfo says on a machine, shortened in the long lines, and the count that comes of it.
struct CpuInfoText
{
    const char* machine;
    unsigned int processors;
    std::string text;

    friend std::ostream& operator<<(std::ostream& out, const CpuInfoText& info) { return out << info.machine; }
};

inline const std::vector<CpuInfoText> kCpuInfoTexts = {
    {"X86Server", 2, R"(processor	: 0
vendor_id	: GenuineIntel
cpu family	: 6
model		: 85
model name	: Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz
stepping	: 4
cpu MHz		: 2100.000
cache size	: 22528 KB
physical id	: 0
siblings	: 2
core id		: 0
cpu cores	: 2
apicid		: 0
fpu		: yes
flags		: fpu vme de pse tsc msr pae mce cx8 apic sep mtrr pge mca cmov pat
bugs		: cpu_meltdown spectre_v1 spectre_v2
bogomips	: 4200.00
clflush size	: 64
address sizes	: 46 bits physical, 48 bits virtual
power management:

processor	: 1
vendor_id	: GenuineIntel
cpu family	: 6
model name	: Intel(R) Xeon(R) Gold 6130 CPU @ 2.10GHz
physical id	: 0
siblings	: 2
core id		: 1
cpu cores	: 2
power management:

)"},
    {"X86ModelNameWithCapitalProcessor", 2, R"(processor	: 0
vendor_id	: AuthenticAMD
model name	: AMD EPYC 7571 32-Core Processor
cpu cores	: 1
power management:

processor	: 1
vendor_id	: AuthenticAMD
model name	: AMD EPYC 7571 32-Core Processor
cpu cores	: 1
power management:

)"},
    // The word in the model's name is counted as well: a machine of one processor counts as two.
    {"X86VirtualModelNameWithTheWord", 2, R"(processor	: 0
vendor_id	: GenuineIntel
cpu family	: 15
model		: 6
model name	: Common KVM processor
cpu MHz		: 2600.000
power management:

)"},
    {"Arm64", 4, R"(processor	: 0
BogoMIPS	: 243.75
Features	: fp asimd evtstrm aes pmull sha1 sha2 crc32 atomics fphp asimdhp cpuid
CPU implementer	: 0x41
CPU architecture: 8
CPU variant	: 0x3
CPU part	: 0xd0c
CPU revision	: 1

processor	: 1
BogoMIPS	: 243.75
CPU implementer	: 0x41

processor	: 2
BogoMIPS	: 243.75
CPU implementer	: 0x41

processor	: 3
BogoMIPS	: 243.75
CPU implementer	: 0x41

)"},
    {"Arm32", 2, R"(processor	: 0
model name	: ARMv7 Processor rev 4 (v7l)
BogoMIPS	: 38.40
Features	: half thumb fastmult vfp edsp neon vfpv3 tls vfpv4 idiva idivt
CPU implementer	: 0x41
CPU architecture: 7

processor	: 1
model name	: ARMv7 Processor rev 4 (v7l)
BogoMIPS	: 38.40

Hardware	: BCM2835
Revision	: a02082
Serial		: 00000000abcdef01
)"},
    // Old kernels name the model once, with a capital, before the list.
    {"Arm32OldKernel", 2, R"(Processor	: ARMv7 Processor rev 10 (v7l)
processor	: 0
BogoMIPS	: 1581.05

processor	: 1
BogoMIPS	: 1581.05

Features	: swp half thumb fastmult vfp edsp neon vfpv3
CPU implementer	: 0x41
Hardware	: Freescale i.MX 6Quad
)"},
    // Older ones list nothing but that line: one processor, by default.
    {"Arm32OneProcessorOldKernel", 1, R"(Processor	: ARM926EJ-S rev 5 (v5l)
BogoMIPS	: 226.09
Features	: swp half thumb fastmult edsp java
CPU implementer	: 0x41
Hardware	: ARM-Versatile PB
)"},
    {"S390", 3, R"(vendor_id       : IBM/S390
# processors    : 3
bogomips per cpu: 3033.00
max thread id   : 0
features	: esan3 zarch stfle msa ldisp eimm dfp edat etf3eh highgprs te vx sie
facilities      : 0 1 2 3 4 6 7 8 9 10 12 14 16 17 18 19 20 21
cache0          : level=1 type=Data scope=Private size=128K line_size=256 associativity=8
processor 0: version = FF,  identification = 2733E8,  machine = 2964
processor 1: version = FF,  identification = 2733E8,  machine = 2964
processor 2: version = FF,  identification = 2733E8,  machine = 2964

cpu number      : 0
cpu MHz dynamic : 5000
cpu MHz static  : 5000

cpu number      : 1
cpu MHz dynamic : 5000

cpu number      : 2
cpu MHz dynamic : 5000

)"},
    {"Power", 2, R"(processor	: 0
cpu		: POWER9 (architected), altivec supported
clock		: 2200.000000MHz
revision	: 2.2 (pvr 004e 1202)

processor	: 1
cpu		: POWER9 (architected), altivec supported
clock		: 2200.000000MHz
revision	: 2.2 (pvr 004e 1202)

timebase	: 512000000
platform	: pSeries
model		: IBM pSeries (emulated by qemu)
machine		: CHRP IBM pSeries (emulated by qemu)
MMU		: Radix
)"},
    {"RiscV", 4, R"(processor	: 0
hart		: 2
isa		: rv64imafdc
mmu		: sv39
uarch		: sifive,u74-mc

processor	: 1
hart		: 1
isa		: rv64imafdc
mmu		: sv39

processor	: 2
hart		: 3
isa		: rv64imafdc
mmu		: sv39

processor	: 3
hart		: 4
isa		: rv64imafdc
mmu		: sv39

)"},
    {"Mips", 2, R"(system type		: MIPS Malta
machine			: mti,malta
processor		: 0
cpu model		: MIPS 34Kc V0.0  FPU V0.0
BogoMIPS		: 1196.03
core			: 0

processor		: 1
cpu model		: MIPS 34Kc V0.0  FPU V0.0
BogoMIPS		: 1196.03
core			: 0

)"},
    // These two name no processor in the way of the others.
    {"Sparc", 1, R"(cpu		: UltraSparc T1 (Niagara)
fpu		: UltraSparc T1 integrated FPU
type		: sun4v
ncpus probed	: 4
ncpus active	: 4
CPU0ClkTck	: 000000003b9aca00
CPU1ClkTck	: 000000003b9aca00
State:
CPU0:		online
CPU1:		online
)"},
    {"Alpha", 1, R"(cpu			: Alpha
cpu model		: EV67
system type		: Tsunami
cpus detected		: 2
cpus active		: 2
cpu active mask		: 0000000000000003
)"},
};

} // namespace TAV::test
