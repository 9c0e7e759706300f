/* A module that can be loaded only as long as nobody looks for what it calls. */
void NobodyHasThis(void);
void CallIt(void);

void CallIt(void)
{
    NobodyHasThis();
}
