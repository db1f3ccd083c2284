// Process entry (grown by the core work).
int main(void)
{
    return 0;
}
