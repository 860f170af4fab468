// Replaces wiringPi in tests of a build for the instrument: a board on which nothing answers.

#include "wiringPi.h"
#include "wiringPiI2C.h"

int wiringPiSetup()
{
    return 0;
}

void pinMode(int, int) {}

void digitalWrite(int, int) {}

int digitalRead(int)
{
    return LOW;
}

int wiringPiISR(int, int, void (*)())
{
    return -1;
}

void piLock(int) {}

void piUnlock(int) {}

int wiringPiI2CSetup(int)
{
    return -1;
}

int wiringPiI2CRead(int)
{
    return -1;
}

int wiringPiI2CWrite(int, int)
{
    return -1;
}

int wiringPiI2CReadReg8(int, int)
{
    return -1;
}

int wiringPiI2CReadReg16(int, int)
{
    return -1;
}

int wiringPiI2CWriteReg8(int, int, int)
{
    return -1;
}

int wiringPiI2CWriteReg16(int, int, int)
{
    return -1;
}
