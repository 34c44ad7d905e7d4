<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>ImportDialog</name>
    <message numerus="yes">
        <source>All %n student(s) were enrolled.</source>
        <translation>
            <numerusform>The student was enrolled.</numerusform>
            <numerusform>All %n students were enrolled.</numerusform>
        </translation>
    </message>
</context>
<context>
    <name>StudentPanel</name>
    <message numerus="yes">
        <source>%n student(s)</source>
        <translation>
            <numerusform>%n student</numerusform>
            <numerusform>%n students</numerusform>
        </translation>
    </message>
</context>
</TS>
