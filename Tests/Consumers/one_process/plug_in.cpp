#include "plug_in.h"

SServices PlugInFindsServices()
{
	return FindServices();
}

void PlugInReadsPastViews()
{
	ReadPastViews();
}
