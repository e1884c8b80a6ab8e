#include "control_files.hpp"

#include <unistd.h>

#include <stdexcept>

namespace control_files {

// clang-format off
const std::string lab6 = R"pcr(LaB6 line-profile standard, laboratory X-rays
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   0   7   1   0   1   0   0   0   0   0   0   0   0   0   0   0   0   0   0
!Iot Ipl Ipc Mat Nxt Ls1 Ls2 Ls3 Nli Prf Ins Jci Jsy Jlk Jfo Sho Ana
   0   0   1   0   1   0   0   0   1   1  10   0   0   0   0   0   1
!  Lambda1   Lambda2     Ratio     Bkpos       Wdt      Cthm    tmv(1)      Rlim       Rkk    tmv(2)
  1.540560  1.544390    0.5000    70.000   12.0000    0.7998    0.0000    45.000    0.0000    0.0000
!Mcycle   Eps  Relax1 Relax2 Relax3 Relax4      Thmin        Step       Thmax   Alpsd   Sent0
   15    0.10   1.00   1.00   1.00   1.00     10.0000    0.020000    140.0000   0.000   0.000
! Excluded regions (alow ahigh) of Pattern#  1
        10.000        18.000
! Number of refined parameters (maxs)
      16
!    Zero    Code   SyCos    Code   SySin    Code  Lambda     Code  More
  0.01000   21.00 0.00000    0.00 0.00000    0.00 0.00000     0.00     0
! Background values and codes of Pattern#  1  (polynomial)
      80.0000     -15.0000       6.0000       0.0000       0.0000       0.0000
        31.00        41.00        51.00        61.00        71.00        81.00
! Data for PHASE number:  1
LaB6
!Nat Dis Ang Pr1 Pr2 Pr3 Jbt Irf Isy Str Furth      ATZ   Nvk Npr More
   2   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0
P m -3 m             <-- space group symbol
!Atom   Typ        X         Y         Z      Biso       Occ    In Fin N_t Spc
La     LA     0.000000  0.000000  0.000000   0.35000   0.020833   0   0   0   0  # site 1a
                  0.00      0.00      0.00    111.00       0.00
!     beta11    beta22    beta33    beta12    beta13    beta23 of an atom with N_t 2
B      B      0.199600  0.500000  0.500000   0.00000   0.125000   0   0   2   0  # site 6f
                101.00      0.00      0.00      0.00       0.00
     0.0051437  0.007770  0.007770  0.000000  0.000000  0.000000
        121.00    131.00    131.00      0.00      0.00      0.00
!-------> Profile Parameters for Pattern #  1
!  Scale          Shape1      Bov      Str1      Str2      Str3   Strain-Model
  2.500000E-03   0.00000   0.00000   0.00000   0.00000   0.00000        0
      11.00000      0.00      0.00      0.00      0.00      0.00
!       U            V            W             X            Y         GauSiz      LorSiz    Size-Model
    0.006000    -0.004000     0.003500     0.008000     0.015000     0.000000     0.000000        0
        0.00         0.00       151.00         0.00       141.00         0.00         0.00
!     a          b         c        alpha      beta       gamma
    4.156890    4.156890    4.156890   90.000000   90.000000   90.000000
    91.00       91.00       91.00        0.00        0.00        0.00
!  Pref1    Pref2      Asy1     Asy2     Asy3     Asy4      S_L      D_L
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.02500  0.02500
     0.00     0.00     0.00     0.00     0.00     0.00   161.00   161.00
! Linear restraints: value  sigma  n  (coefficient  parameter) x n
   0.350000   0.100000   1     1.0000    11
)pcr";

const std::string corundum = R"pcr(Corundum, X-rays and neutrons together
NPATT  2   1  1
W_PAT   0.500   0.500
!Nph Dum Ias Nre Cry Opt Aut
   1   0   0   0   0   0   0
!Job Npr Nba Nex Nsc Nor Iwg Ilo Res Ste Uni Cor Anm Int
   0   7   0   0   0   0   0   0   0   0   0   0   0   0
   1   7   0   1   0   0   0   0   0   0   0   0   0   0
! Data files, one line per pattern
al2o3_x.dat
al2o3_n.dat
!Mat Nxt Nli Jci Jsy Sho
   0   1   0   0   0   0
!Iot Ipl Ipc Ls1 Ls2 Ls3 Prf Ins Jlk Jfo Ana
   0   0   1   0   0   0   1  10   0   0   1
   0   0   1   0   0   0   1   0   0   0   1
!  Lambda1   Lambda2     Ratio     Bkpos       Wdt      Cthm    tmv(1)      Rlim       Rkk    tmv(2)
  1.540560  1.544390    0.5000    75.000   12.0000    0.7998    0.0000     0.000    0.0000    0.0000
  1.594000  1.594000    1.0000    75.000    8.0000    0.0000    0.0500     0.000    0.0000    0.0000
!Mcycle   Eps  Relax1 Relax2 Relax3 Relax4
   12    0.10   1.00   1.00   1.00   1.00
!     Thmin        Step       Thmax   Alpsd   Sent0
    20.0000    0.020000    130.0000   0.000   0.000
    10.0000    0.050000    155.0000   0.000   0.000
! Excluded regions (alow ahigh) of Pattern#  2
        10.000        20.000
! Number of refined parameters (maxs)
      25
!    Zero    Code   SyCos    Code   SySin    Code  Lambda     Code  More     Pattern#  1
  0.00000   31.00 0.00000    0.00 0.00000    0.00 0.00000     0.00     0
! Background values and codes of Pattern#  1  (polynomial)
     120.0000     -30.0000      10.0000       0.0000       0.0000       0.0000
        51.00        61.00        71.00        81.00        91.00         0.00
  0.05000   41.00 0.00000    0.00 0.00000    0.00 0.00000     0.00     0
     210.0000      12.0000       0.0000       0.0000       0.0000       0.0000
       101.00       111.00       121.00         0.00         0.00         0.00
Al2O3 corundum
!Nat Dis Ang Jbt Isy Str Furth      ATZ   Nvk More
   2   1   0   0   0   0   0       0.000   0   0
! Contributions of the phase to the patterns
   1   1
!Irf Npro Jtyp Nref_sp Ph_shift for Pattern#  1
   0   7   0   0   0
!  Pr1    Pr2    Pr3    Brinl    Rmua    Rmub    Rmuc for Pattern#  1
  0.000  0.000  1.000   0.000   0.000   0.000   0.000
   0   7   0   0   0
  0.000  0.000  1.000   0.000   0.000   0.000   0.000
! Dis_max  Ang_max  (BVS)
   2.5000   0.0000
R -3 c               <-- space group symbol
!Atom   Typ        X         Y         Z      Biso       Occ    In Fin N_t Spc
Al     AL     0.000000  0.000000  0.352160   0.25000   0.333333   0   0   0   0
                  0.00      0.00    141.00    151.00       0.00
O1     O      0.306240  0.000000  0.250000   0.30000   0.500000   0   0   0   0
                161.00      0.00      0.00    171.00       0.00
!-------> Profile Parameters for Pattern #  1
!  Scale          Shape1      Bov      Str1      Str2      Str3   Strain-Model
  1.200000E-03   0.00000   0.00000   0.00000   0.00000   0.00000        0
      11.00000      0.00      0.00      0.00      0.00      0.00
!       U            V            W             X            Y         GauSiz      LorSiz    Size-Model
    0.007000    -0.005000     0.004000     0.010000     0.020000     0.000000     0.000000        0
      181.00       191.00       201.00         0.00       211.00         0.00         0.00
!     a          b         c        alpha      beta       gamma
    4.759200    4.759200   12.992000   90.000000   90.000000  120.000000
   221.00      221.00      231.00        0.00        0.00      221.00
!  Pref1    Pref2      Asy1     Asy2     Asy3     Asy4      S_L      D_L
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
!-------> Profile Parameters for Pattern #  2
  4.500000       0.00000   0.00000   0.00000   0.00000   0.00000        0
      21.00000      0.00      0.00      0.00      0.00      0.00
    0.150000    -0.300000     0.250000     0.000000     0.050000     0.000000     0.000000        0
      241.00         0.00       131.00         0.00       251.00         0.00         0.00
    4.759200    4.759200   12.992000   90.000000   90.000000  120.000000
   221.00      221.00      231.00        0.00        0.00      221.00
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
! Distance restraints: catod catod isymc transl(3) dio sdio
Al     O1      1   0.00000   0.00000   0.00000   1.97200   0.00500
!  t1_lim      t2_lim   Pattern to plot
     20.000    130.000      1
)pcr";

const std::string ceria = R"pcr(CeO2, profile matching (Le Bail)
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   0   7   1  -3   0   0   0   0   0   0   0   0   0   0   0   0   0   0   0
   0   0   1   0   1   0   0   0   0   1   0   0   0   0   0   0   1
  1.540560  1.544390    0.5000    80.000   14.0000    0.7998    0.0000     0.000    0.0000    0.0000
   20    0.10   1.00   1.00   1.00   1.00     20.0000    0.020000    145.0000   0.000   0.000
      14
  0.00000    0.00 0.01000   11.00 0.00000    0.00 0.00000     0.00     0
      60.0000      -5.0000       2.0000       0.0000       0.0000       0.0000
        21.00        31.00        41.00        51.00        61.00        71.00
       0.0000       0.0000       0.0000       0.0000       0.0000       0.0000
        81.00         0.00         0.00        91.00         0.00         0.00
CeO2 fluorite
   0   0   0 0.0 0.0 1.0   2   0   0   0   0       0.000   0   7   0
F m -3 m             <-- space group symbol
!-------> Profile Parameters for Pattern #  1
  1.000000       0.00000   0.00000   0.00000   0.00000   0.00000        0
       0.00000      0.00      0.00      0.00      0.00      0.00
    0.006000    -0.004000     0.003500     0.008000     0.020000     0.000000     0.000000        0
      101.00       111.00       121.00         0.00       131.00         0.00         0.00
    5.411650    5.411650    5.411650   90.000000   90.000000   90.000000
   141.00      141.00      141.00        0.00        0.00        0.00
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
)pcr";

const std::string zincite = R"pcr(ZnO, interpolated background, automatic codes
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   0   7   1   6   0   0   1   0   0   0   0   0   0   0   0   0   0   0   1
   0   0   1   0   1   0   0   0   0   1  10   0   0   0   0   0   1
  1.540560  1.544390    0.5000    70.000   12.0000    0.7998    0.0000     0.000    0.0000    0.0000
VARY sycos backgd Scale_Factors CELL: Phase No.: 1
FIX zero sysin
   15    0.10   1.00   1.00   1.00   1.00     20.0000    0.020000    120.0000   0.000   0.000
!     Position      Height      Code    Background points of Pattern#  1
       20.0000     150.000      0.00
       40.0000     110.000      0.00
       60.0000      90.000      0.00
       80.0000      85.000      0.00
      100.0000      80.000      0.00
      120.0000      80.000      0.00
       0
  0.00000    0.00 0.00000    0.00 0.00000    0.00 0.00000     0.00     0
ZnO wurtzite
   2   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0
P 63 m c             <-- space group symbol
Zn     ZN     0.333333  0.666667  0.000000   0.50000   0.166667   0   0   0   0
                  0.00      0.00      0.00      1.00       0.00
O      O      0.333333  0.666667  0.381900   0.60000   0.166667   0   0   0   0
                  0.00      0.00      1.00      1.00       0.00
!-------> Profile Parameters for Pattern #  1
  3.000000E-03   0.00000   0.00000   0.00000   0.00000   0.00000        0
       0.00000      0.00      0.00      0.00      0.00      0.00
    0.008000    -0.005000     0.004500     0.010000     0.030000     0.000000     0.000000        0
        0.00         0.00         1.00         0.00         1.00         0.00         0.00
    3.249800    3.249800    5.206600   90.000000   90.000000  120.000000
     0.00        0.00        0.00        0.00        0.00        0.00
  0.98000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     1.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
)pcr";

const std::string yttria = R"pcr(Y2O3, time-of-flight neutrons
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   1   9   1   0   1   0   0   0   0   0   0   0   0   0   0   1   0   0   0
!Iot Ipl Ipc Mat Nxt Ls1 Ls2 Ls3 Nli Prf Ins Jci Jsy Jlk Jfo Sho Ana
   0   0   1   0   1   0   0   0   0   3  10   0   0   0   0   0   1
!     Bkpos       Wdt   Iabscor
  12000.000   20.0000         3
!Mcycle   Eps  Relax1 Relax2 Relax3 Relax4      Thmin        Step       Thmax   Alpsd   Sent0
   15    0.10   1.00   1.00   1.00   1.00   4000.0000    4.000000  25000.0000   0.000   0.000
! Excluded regions (alow ahigh) of Pattern#  1
      4000.000      4500.000
! Number of refined parameters (maxs)
      19
!    Zero    Code      Dtt1    Code    Dtt2    Code  Dtt_1overd   Code       Angle
 -5.20000   21.00 7476.9100    0.00 -1.5400   31.00      0.0000   0.00     144.845
! Background values and codes of Pattern#  1  (polynomial)
       1.2000       0.1000       0.0000       0.0000       0.0000       0.0000
        41.00        51.00        61.00         0.00         0.00         0.00
Y2O3 bixbyite
!Nat Dis Ang Pr1 Pr2 Pr3 Jbt Irf Isy Str Furth      ATZ   Nvk Npr More
   3   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   9   0
I a -3               <-- space group symbol
!Atom   Typ        X         Y         Z      Biso       Occ    In Fin N_t Spc
Y1     Y      0.250000  0.250000  0.250000   0.30000   0.083333   0   0   0   0
                  0.00      0.00      0.00     71.00       0.00
Y2     Y     -0.032600  0.000000  0.250000   0.30000   0.250000   0   0   0   0
                 81.00      0.00      0.00     71.00       0.00
O      O      0.390700  0.152000  0.380400   0.40000   0.500000   0   0   0   0
                 91.00    101.00    111.00    121.00       0.00
!-------> Profile Parameters for Pattern #  1
!  Scale          Extinc       Bov      Str1      Str2      Str3    Strain-Mode
  0.350000       0.00000   0.00000   0.00000   0.00000   0.00000        0
      11.00000      0.00      0.00      0.00      0.00      0.00
!      Sigma-2       Sigma-1       Sigma-0       Sigma-Q   Iso-GStrain     Iso-GSize     Ani-LSize   Size-Mode
     8.000000     80.000000      0.000000      0.000000      0.000000      0.000000      0.000000        0
       131.00        141.00          0.00          0.00          0.00          0.00          0.00
!      Gamma-2       Gamma-1       Gamma-0   Iso-LorStrain   Iso-LorSize
     0.000000      3.000000      0.000000      0.000000      0.000000
         0.00        151.00          0.00          0.00          0.00
!     a          b         c        alpha      beta       gamma
   10.604000   10.604000   10.604000   90.000000   90.000000   90.000000
   161.00      161.00      161.00        0.00        0.00        0.00
!      Pref1      Pref2        alph0       beta0       alph1       beta1       alphQ       betaQ
     0.000000   0.000000     0.000000    0.042210    0.597000    0.009460    0.000000    0.000000
         0.00       0.00         0.00      171.00        0.00      181.00        0.00        0.00
!Absorption correction parameters
     0.010000   0.000000
       191.00       0.00
)pcr";

const std::string boride = R"pcr(NdB6 (11B) at 2 K, nuclear and magnetic phase
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   1   7   2   0   0   1   0   0   0   0   0   0   0   0   0   0   0   0   0
   0   0   1   0   1   0   0   0   0   1  10   0   0   0   0   0   1
  2.450000  2.450000    1.0000    60.000    8.0000    0.0000    0.1000     0.000    0.0000    0.0000
   12    0.10   1.00   1.00   1.00   1.00      8.0000    0.100000    150.0000   0.000   0.000
! Scattering entries: name  Dfp (here b in 10^-12 cm)  Dfpp  Ity
B11    0.66500   0.00000   0
! Number of refined parameters (maxs)
      14
  0.00000   21.00 0.00000    0.00 0.00000    0.00 0.00000     0.00     0
     350.0000     -20.0000      10.0000       0.0000       0.0000       0.0000
        31.00        41.00        51.00         0.00         0.00         0.00
NdB6 nuclear
!Nat Dis Ang Pr1 Pr2 Pr3 Jbt Irf Isy Str Furth      ATZ   Nvk Npr More
   2   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0
P m -3 m             <-- space group symbol
!Atom   Typ        X         Y         Z      Biso       Occ    In Fin N_t Spc
Nd     ND     0.000000  0.000000  0.000000   0.20000   0.020833   0   0   0   0
                  0.00      0.00      0.00     61.00       0.00
B      B11    0.199000  0.500000  0.500000   0.30000   0.125000   0   0   0   0
                 71.00      0.00      0.00     81.00       0.00
!-------> Profile Parameters for Pattern #  1
  12.00000       0.00000   0.00000   0.00000   0.00000   0.00000        0
      11.00000      0.00      0.00      0.00      0.00      0.00
    0.200000    -0.400000     0.350000     0.000000     0.000000     0.000000     0.000000        0
       91.00       101.00       111.00         0.00         0.00         0.00         0.00
    4.126000    4.126000    4.126000   90.000000   90.000000   90.000000
   121.00      121.00      121.00        0.00        0.00        0.00
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
NdB6 magnetic, k = 0 0 1/2
   1   0   0 0.0 0.0 1.0   1   0   1   0   0       0.000   1   7   0
P 1                  <-- space group symbol
!Nsym  Cen  Laue MagMat
    1    1    1    1
SYMM  x,y,z
MSYM  u,v,w,0.00
! Propagation vectors:
   0.000000   0.000000   0.500000
       0.00       0.00       0.00
!Atom   Typ  Imagr Ikv  X         Y         Z      Biso       Occ        Rx        Ry        Rz
!            Ix        Iy        Iz    beta11    beta22    beta33     MagPh
Nd     MND3    1   1  0.000000  0.000000  0.000000   0.20000   0.500000   0.00000   0.00000   1.74000
                          0.00      0.00      0.00     61.00      0.00      0.00      0.00    131.00
       0.00000   0.00000   0.00000  0.000000  0.000000  0.000000   0.00000
          0.00      0.00      0.00      0.00      0.00      0.00      0.00
!-------> Profile Parameters for Pattern #  1
  12.00000       0.00000   0.00000   0.00000   0.00000   0.00000        0
      11.00000      0.00      0.00      0.00      0.00      0.00
    0.200000    -0.400000     0.350000     0.000000     0.020000     0.000000     0.000000        0
       91.00       101.00       111.00         0.00       141.00         0.00         0.00
    4.126000    4.126000    4.126000   90.000000   90.000000   90.000000
   121.00      121.00      121.00        0.00        0.00        0.00
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
)pcr";

const std::string crystal = R"pcr(Corundum, single crystal, neutrons
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   1   0   1   0   0   0   0   0   0   0   0   0   0   0   1   0   0   0   0
   0   0   1   1   1   0   0   0   0   0   0   0   0   0   0   0   0
   10    0.10   1.00   1.00   1.00   1.00      0.0000    0.000000    180.0000   0.000   0.000
! Number of refined parameters (maxs)
       5
Al2O3 corundum
!Nat Dis Ang Pr1 Pr2 Pr3 Jbt Irf Isy Str Furth      ATZ   Nvk Npr More
   2   0   0 0.0 0.0 1.0   0   4   0   0   0       0.000   0   0   1
!Jview Jdist Jhelix Jsol Nmagc Jter Brinl Rmua Rmub Rmuc Jtyp Nref_sp Ph_shift N_domains
   0   0   0   0   0   0   0.000   1.000   0.000   0.000   1       0        0         0
R -3 c               <-- space group symbol
Al     AL     0.000000  0.000000  0.350000   0.30000   0.333333   0   0   0   0
                  0.00      0.00     21.00     31.00       0.00
O1     O      0.304000  0.000000  0.250000   0.30000   0.500000   0   0   0   0
                 41.00      0.00      0.00     51.00       0.00
!-------> Profile Parameters for Pattern #  1
!      Sc1        Sc2        Sc3        Sc4        Sc5        Sc6   Num_scale
  900.00000    0.00000    0.00000    0.00000    0.00000    0.00000      1
      11.00       0.00       0.00       0.00       0.00       0.00
! Extinction parameters                                           Ext-Model
    0.00000    0.00000    0.00000    0.00000    0.00000    0.00000      0
       0.00       0.00       0.00       0.00       0.00       0.00
    4.759200    4.759200   12.992000   90.000000   90.000000  120.000000
     0.00        0.00        0.00        0.00        0.00        0.00
)pcr";

const std::string annealing = R"pcr(Corundum, simulated annealing against integrated intensities
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   1   0   1   0   0   0   0   0   0   0   0   0   0   2   3   0   0   0   0
   0   0   1   0   1   0   0   0   0   0   0   0   0   0   0   0   0
    1    0.10   1.00   1.00   1.00   1.00      0.0000    0.000000    180.0000   0.000   0.000
       2
Al2O3 corundum
   2   0   0 0.0 0.0 1.0   0   4   0   0   0       0.000   0   0   0
R -3 c               <-- space group symbol
Al     AL     0.000000  0.000000  0.100000   0.25000   0.333333   0   0   0   0
                  0.00      0.00     11.00      0.00       0.00
O1     O      0.100000  0.000000  0.250000   0.30000   0.500000   0   0   0   0
                 21.00      0.00      0.00      0.00       0.00
!-------> Profile Parameters for Pattern #  1
 1000.00000    0.00000    0.00000    0.00000    0.00000    0.00000      1
       0.00       0.00       0.00       0.00       0.00       0.00
    0.00000    0.00000    0.00000    0.00000    0.00000    0.00000      0
       0.00       0.00       0.00       0.00       0.00       0.00
    4.759200    4.759200   12.992000   90.000000   90.000000  120.000000
     0.00        0.00        0.00        0.00        0.00        0.00
! Limits: number  low  high  step  condition  name
    1     0.0000     0.5000     0.0400   1   Z_Al_ph1
    2     0.0000     1.0000     0.0400   1   X_O1_ph1
!    T_ini   Anneal  Acceptc Num_temps  Nalgor Initconfig
    20.000   0.9000   5.0000        60       0          0
! Nconfg Num_therm  Nscalef Weight_sim    Seed1     Seed2
     100        10        1          0     1234      5678
)pcr";

const std::string anisotropic = R"pcr(Anisotropic size (ZnO, harmonics) and strain (CeO2, quartic)
!Job Npr Nph Nba Nex Nsc Nor Dum Iwg Ilo Ias Res Ste Nre Cry Uni Cor Opt Aut
   0   7   2   0   0   0   0   0   0   0   0   1   0   1   0   0   0   0   0
lab.irf
   0   0   1   0   1   0   0   0   0   1  10   0   0   0   0   0   1
  1.540560  1.544390    0.5000    70.000   20.0000    0.7998    0.0000     0.000    0.0000    0.0000
   20    0.10   1.00   1.00   1.00   1.00     20.0000    0.020000    130.0000   0.000   0.000
      18
  0.00000    0.00 0.00000   31.00 0.00000    0.00 0.00000     0.00     0
     100.0000     -20.0000       5.0000       0.0000       0.0000       0.0000
        41.00        51.00        61.00         0.00         0.00         0.00
ZnO wurtzite
   2   0   0 0.0 0.0 1.0   0   0   0   0   0       0.000   0   7   0
P 63 m c             <-- space group symbol
Zn     ZN     0.333333  0.666667  0.000000   0.50000   0.166667   0   0   0   0
                  0.00      0.00      0.00     71.00       0.00
O      O      0.333333  0.666667  0.381900   0.60000   0.166667   0   0   0   0
                  0.00      0.00     81.00     71.00       0.00
!-------> Profile Parameters for Pattern #  1
  3.000000E-03   0.00000   0.00000   0.00000   0.00000   0.00000        0
      11.00000      0.00      0.00      0.00      0.00      0.00
    0.000000     0.000000     0.000000     0.000000     0.000000     0.000000     0.000000       21
        0.00         0.00         0.00         0.00         0.00         0.00         0.00
    3.249800    3.249800    5.206600   90.000000   90.000000  120.000000
    91.00       91.00      101.00        0.00        0.00       91.00
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
!        Y00         Y20         Y40         Y60        Y66+      Size harmonics (Laue:6/mmm)
    3.000000    0.500000    0.100000    0.000000    0.000000
      111.00      121.00      131.00        0.00        0.00
CeO2 fluorite
   2   0   0 0.0 0.0 1.0   0   0   0   1   0       0.000   0   7   0
F m -3 m             <-- space group symbol
Ce     CE     0.000000  0.000000  0.000000   0.25000   0.020833   0   0   0   0
                  0.00      0.00      0.00    141.00       0.00
O      O      0.250000  0.250000  0.250000   0.45000   0.041667   0   0   0   0
                  0.00      0.00      0.00      0.00       0.00
!-------> Profile Parameters for Pattern #  1
  1.500000E-03   0.00000   0.00000   0.00000   0.00000   0.00000       14
      21.00000      0.00      0.00      0.00      0.00      0.00
    0.000000     0.000000     0.000000     0.000000     0.010000     0.000000     0.000000        0
        0.00         0.00         0.00         0.00         0.00         0.00         0.00
    5.411650    5.411650    5.411650   90.000000   90.000000   90.000000
   151.00      151.00      151.00        0.00        0.00        0.00
  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000  0.00000
     0.00     0.00     0.00     0.00     0.00     0.00     0.00     0.00
!      S_400       S_220      (Laue:m-3m)
    0.010000    0.005000
      161.00      171.00
!  Lorentzian part of the anisotropic strain (Xi)
    0.500000
      181.00
! Limits: number  low  high  step  condition  name
   18     0.0000     1.0000     0.0000   0   Xi_ph2_pat1
)pcr";

const std::string laboratory_irf = R"pcr(Laboratory diffractometer, from LaB6
WAVE 1.54056 1.54439 0.5
 0.0060 -0.0040 0.0035
 0.0080  0.0150 0.0000
)pcr";

// clang-format on

std::string with(std::string text, std::string_view from, std::string_view to) {
  const std::size_t at = text.find(from);
  if (at == std::string::npos) throw std::invalid_argument("the text does not hold: " + std::string(from));
  return text.replace(at, from.size(), to);
}

std::vector<std::string> lines_of(std::string_view text) {
  std::vector<std::string> lines;
  std::istringstream in{std::string(text)};
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string join(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
}

std::string without_lines(std::string_view text, int first, int last) {
  std::vector<std::string> lines = lines_of(text);
  lines.erase(lines.begin() + first - 1, lines.begin() + last);
  return join(lines);
}

std::string with_line(std::string_view text, int n, std::string_view line) {
  std::vector<std::string> lines = lines_of(text);
  lines.at(static_cast<std::size_t>(n - 1)) = line;
  return join(lines);
}

std::string lab6_free() {
  return without_lines(with(lab6, "0   1   1  10   0   0   0   0   0   1", "0   0   1  10   0   0   0   0   0   1"), 45,
                       46);
}

std::string corundum_free() {
  return without_lines(without_lines(with(corundum, "   2   1   0   0 ", "   2   0   0   0 "), 78, 79), 48, 49);
}

run_directory::run_directory() {
  std::string name = (std::filesystem::temp_directory_path() / "kalvaris_control_XXXXXX").string();
  path = ::mkdtemp(name.data());
}

run_directory::~run_directory() {
  std::error_code ec;
  std::filesystem::remove_all(path, ec);
}

void run_directory::put(const std::string& name, std::string_view text) const {
  std::filesystem::remove(path / name);  // some file systems flush a file that is truncated and written again: slow
  std::ofstream(path / name, std::ios::binary) << text;
}

std::string run_directory::get(const std::string& name) const {
  std::ifstream in(path / name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

kalvaris_params::state_type& run_directory::read(std::string_view text, pcr_lines::record* keep) {
  put("code.pcr", text);
  console.str("");
  state = std::make_unique<kalvaris_params::state_type>();
  kalvaris_inout::inout_type& io = state->io;
  io.directory = path.string() + "/";
  io.filenam = "code";
  io.filedat = {"code"};
  io.extdat = {".dat"};
  io.console = &console;
  kalvaris_inout::openfile(io, {.key = 1});
  read_pcr_mod::read_pcr(*state, keep);
  kalvaris_inout::close_all(io);
  return *state;
}

void run_directory::put_named_files() const {
  for (const char* name : {"al2o3_x.dat", "al2o3_n.dat"}) put(name, "");
  put("lab.irf", laboratory_irf);
}

std::string run_directory::message() const {
  std::string text;
  for (int k = 0; k < state->fmt.mess_findfmt.nlines; ++k) text += state->fmt.mess_findfmt.txt[k] + '\n';
  return text;
}

}  // namespace control_files
